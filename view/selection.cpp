#include "view/selection.h"

#include <algorithm>
#include <cmath>

namespace {
bool Toggle(std::vector<int>& list, int index) {
  auto it = std::find(list.begin(), list.end(), index);
  if (it != list.end()) {
    list.erase(it);
    return false;
  }
  list.push_back(index);
  return true;
}
bool Contains(const std::vector<int>& list, int index) {
  return std::find(list.begin(), list.end(), index) != list.end();
}
}  // namespace

PickRegion PickRegion::Around(int x, int y) { return {double(x), double(y), 8, 8}; }

PickRegion PickRegion::Box(int startX, int startY, int x, int y) {
  PickRegion r;
  r.w = std::max(1, std::abs(startX - x));
  r.h = std::max(1, std::abs(startY - y));
  r.x = (startX + x) / 2.0;
  r.y = (startY + y) / 2.0;
  return r;
}

int PickMarker(const std::vector<ZORMarker>& markers, float scale, const Vec3& origin,
               const Vec3& direction, float radius) {
  const double r2 = double(radius) * radius;
  double best = 100000;
  int bestIndex = -1;
  for (size_t i = 0; i < markers.size(); ++i) {
    const ZORMarker& m = markers[i];
    if (!(m.cond > 0)) continue;
    const Vec3 v = difference(Vec3(m.x * scale, m.y * scale, m.z * scale), origin);
    const double along = dot(v, direction);
    const double fromEye2 = dot(v, v);
    const double fromRay2 = fromEye2 - along * along;
    if (along < 0 || !(r2 > fromRay2)) continue;  // behind the eye or off the ray
    const double fromEye = std::sqrt(fromEye2);
    if (fromEye < best) {
      best = fromEye;
      bestIndex = static_cast<int>(i);
    }
  }
  return bestIndex;
}

std::vector<uint32_t> DecodeHits(const uint32_t* buffer, size_t size, int hits) {
  std::vector<uint32_t> names;
  size_t at = 0;
  for (int h = 0; (hits < 0 || h < hits) && at + 3 <= size; ++h) {
    const uint32_t count = buffer[at];
    if (count == 0 && hits < 0) break;  // the unused rest of an overflowed buffer
    if (at + 3 + count > size) break;
    if (count > 0) names.push_back(buffer[at + 3 + count - 1]);
    at += 3 + count;
  }
  return names;
}

bool Selection::ToggleMarker(int index) { return Toggle(markers, index); }
bool Selection::MarkerSelected(int index) const {
  return Contains(markers, index) || Contains(dragMarkers, index);
}
bool Selection::AddDragMarker(int index) {
  if (Contains(dragMarkers, index)) return false;
  dragMarkers.push_back(index);
  return true;
}
bool Selection::ToggleRigid(int index) { return Toggle(rigids, index); }
bool Selection::RigidSelected(int index) const { return Contains(rigids, index); }

void Selection::ResizeCameras(size_t n) { cameras.resize(n, 0); }
bool Selection::ToggleCamera(int index) {
  if (index < 0 || size_t(index) >= cameras.size()) return false;
  cameras[index] = !cameras[index];
  return cameras[index];
}
bool Selection::CameraSelected(int index) const {
  return index >= 0 && size_t(index) < cameras.size() && cameras[index];
}
bool Selection::AnyCamera() const {
  return std::any_of(cameras.begin(), cameras.end(), [](char c) { return c != 0; });
}

void Selection::ClearLists() {
  markers.clear();
  dragMarkers.clear();
  rigids.clear();
}
void Selection::ClearAll() {
  ClearLists();
  std::fill(cameras.begin(), cameras.end(), 0);
}
bool Selection::Empty() const {
  return markers.empty() && dragMarkers.empty() && rigids.empty() && !AnyCamera();
}

std::vector<int> Selection::AllMarkers() const {
  std::vector<int> all = markers;
  for (int i : dragMarkers) {
    if (!Contains(all, i)) all.push_back(i);
  }
  return all;
}

int Selection::UseSet(int n, const std::vector<ZORMarker>& frameMarkers,
                      const std::vector<ZORRigid>& frameRigids,
                      const std::vector<ZORCamera>& frameCameras) {
  if (n < 1 || n > kSets) return 0;
  Stored& set = sets_[n - 1];
  if (set.Empty()) {
    if (Empty()) return 0;
    for (int i : AllMarkers()) {
      if (i >= 0 && size_t(i) < frameMarkers.size()) set.markerIds.push_back(frameMarkers[i].id);
    }
    for (int i : rigids) {
      if (i >= 0 && size_t(i) < frameRigids.size()) set.rigidIds.push_back(frameRigids[i].id);
    }
    for (size_t i = 0; i < cameras.size() && i < frameCameras.size(); ++i) {
      if (cameras[i]) set.cameraIds.push_back(frameCameras[i].id);
    }
    return set.Empty() ? 0 : 1;
  }
  auto has = [](const std::vector<int32_t>& ids, int32_t id) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
  };
  ClearAll();
  for (size_t i = 0; i < frameMarkers.size(); ++i) {
    if (has(set.markerIds, frameMarkers[i].id)) markers.push_back(int(i));
  }
  for (size_t i = 0; i < frameRigids.size(); ++i) {
    if (has(set.rigidIds, frameRigids[i].id)) rigids.push_back(int(i));
  }
  ResizeCameras(frameCameras.size());
  for (size_t i = 0; i < frameCameras.size(); ++i) cameras[i] = has(set.cameraIds, frameCameras[i].id);
  return 2;
}

void Selection::ForgetSets() { sets_ = {}; }
bool Selection::SetStored(int n) const { return n >= 1 && n <= kSets && !sets_[n - 1].Empty(); }
