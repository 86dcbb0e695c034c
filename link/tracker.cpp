#include "link/tracker.h"

#include <algorithm>
#include <cstdio>

Tracker::Tracker(uint32_t type_, int32_t id_, int count) : type(type_), id(id_) {
  for (int i = 0; i < count; ++i) markers.push_back({i, i, {}});
}

Tracker::Tracker(uint32_t type_, int32_t id_, const std::vector<int32_t>& ledIds)
    : type(type_), id(id_) {
  for (size_t i = 0; i < ledIds.size(); ++i) markers.push_back({int32_t(i), ledIds[i], {}});
}

Tracker::Tracker(uint32_t type_, int32_t id_, const float* c, int count, float scale)
    : type(type_), id(id_) {
  for (int i = 0; i < count; ++i)
    markers.push_back({i, i, {scale * c[3 * i], scale * c[3 * i + 1], scale * c[3 * i + 2]}});
}

Tracker::Tracker(uint32_t type_, int32_t id_, const std::vector<TrackerMarker>& from, float scale)
    : type(type_), id(id_) {
  if (from.empty()) std::fprintf(stderr, "error: Tracker(): empty rigid\n");
  markers = from;
  for (auto& marker : markers)
    for (float& value : marker.position) value *= scale;
}

Tracker::Tracker(uint32_t type_, int32_t id_, const std::string& fileName) : type(type_), id(id_) {
  Read(type_, fileName);
}

int32_t Tracker::Create() {
  const auto failed = [this] { return checkErrors && zorGetStatus() == 0; };
  if (failed()) std::printf("warning: Tracker::Create(): e=%x)\n", zorGetError());

  zorTrackeri(id, ZOR_TRACKER_CREATE, static_cast<int>(type));
  if (failed()) {
    std::fprintf(stderr, "error: Tracker::Create(): failed to create tracker: (tracker id=%d) e=%x\n",
                 id, zorGetError());
    return -1;
  }

  for (const auto& marker : markers) {
    const int32_t wireId = WireId(id, marker.index);
    zorMarkeriv(wireId, ZOR_MARKER_LED, &marker.ledId);
    if (marker.position.size() >= 3) zorMarkerfv(wireId, ZOR_MARKER_POSITION, marker.position.data());
    if (failed())
      std::fprintf(stderr, "error: Tracker::Create(): failed to create marker: (marker id=%d) e=%x\n",
                   marker.ledId, zorGetError());
  }
  if (failed()) {
    std::fprintf(stderr, "error: Tracker::Create(): failed to create markers: (markers=%zu)\n",
                 markers.size());
    for (int i = 0; i < 1000; ++i) zorGetError();  // drain the error queue
  }

  for (const auto& option : options) zorTrackerf(id, option.param, option.value);
  Update(true);
  return 1;
}

void Tracker::Update(bool on) {
  zorTracker(id, (enabled && on) ? ZOR_ON : ZOR_OFF);
  if (checkErrors && zorGetStatus() == 0)
    std::fprintf(stderr, "error: Tracker::Update(): failed to update tracker: (tracker id=%d) e=%x\n",
                 id, zorGetError());
}

void Tracker::Destroy() {
  if (id < 0) return;
  zorTracker(id, ZOR_OFF);
  zorTracker(id, ZOR_TRACKER_DESTROY);
}

void Tracker::SetOption(int32_t param, float value, bool replace) {
  if (replace) {
    for (auto& option : options) {
      if (option.param == param) {
        option.value = value;
        return;
      }
    }
  }
  options.push_back({param, value});
}

void Tracker::AddMarker(int32_t ledId) {
  auto greater = std::find_if(markers.begin(), markers.end(),
                              [ledId](const TrackerMarker& m) { return m.ledId > ledId; });
  if (greater == markers.end()) {
    markers.push_back({int32_t(markers.size()), ledId, {}});
    return;
  }
  markers.insert(greater, {0, ledId, {}});
  for (size_t i = 0; i < markers.size(); ++i) markers[i].index = int32_t(i);
}

int32_t Tracker::RemoveMarker(int32_t index) {
  if (index < 0) return -1;
  auto it = std::find_if(markers.begin(), markers.end(),
                         [index](const TrackerMarker& m) { return m.index == index; });
  if (it == markers.end()) return -1;
  const int32_t ledId = it->ledId;
  markers.erase(it);
  return ledId;
}
