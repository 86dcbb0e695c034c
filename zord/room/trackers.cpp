#include "zord/room/trackers.h"

#include <algorithm>
#include <cmath>

#include "zorsock/zorsock.h"

namespace zord {

bool IsTrackerType(int type) {
  return type == ZOR_POINT_TRACKER || type == ZOR_RIGID_TRACKER || type == ZOR_CALIB_TRACKER;
}

bool IsRigidType(int type) { return type == ZOR_RIGID_TRACKER || type == ZOR_CALIB_TRACKER; }

namespace {
bool ValidId(int id) { return id >= 0 && id <= kMaxTrackerId; }
}  // namespace

int TrackerTable::Create(int id, int type) {
  if (!ValidId(id)) return ZOR_INVALID_VALUE;
  if (!IsTrackerType(type)) return ZOR_INVALID_ENUM;
  Tracker tracker;
  tracker.type = type;
  trackers_[id] = tracker;  // re-creating an id replaces the tracker
  ++version_;
  return ZOR_NO_ERROR;
}

int TrackerTable::Destroy(int id) {
  if (!ValidId(id)) return ZOR_INVALID_VALUE;
  if (!trackers_.erase(id)) return ZOR_INVALID_OPERATION;
  ++version_;
  return ZOR_NO_ERROR;
}

int TrackerTable::Enable(int id, bool on) {
  if (!ValidId(id)) return ZOR_INVALID_VALUE;
  const auto it = trackers_.find(id);
  if (it == trackers_.end()) return ZOR_INVALID_OPERATION;
  it->second.enabled = on;
  ++version_;
  return ZOR_NO_ERROR;
}

int TrackerTable::SetOption(int id, int param, float value) {
  if (!ValidId(id) || !std::isfinite(value)) return ZOR_INVALID_VALUE;
  const auto it = trackers_.find(id);
  if (it == trackers_.end()) return ZOR_INVALID_OPERATION;
  auto& options = it->second.options;
  const auto same = std::find_if(options.begin(), options.end(),
                                 [param](const auto& o) { return o.first == param; });
  if (same != options.end()) {
    same->second = value;
  } else {
    options.emplace_back(param, value);
  }
  return ZOR_NO_ERROR;
}

int TrackerTable::FindMarker(int marker_id, TrackerMarker** marker) {
  if (marker_id < 0) return ZOR_INVALID_VALUE;
  const int id = marker_id >> 12;
  if (!ValidId(id)) return ZOR_INVALID_VALUE;
  const auto it = trackers_.find(id);
  if (it == trackers_.end()) return ZOR_INVALID_OPERATION;
  *marker = &it->second.markers[marker_id & kMaxMarkerIndex];
  return ZOR_NO_ERROR;
}

int TrackerTable::AssignLed(int marker_id, const std::vector<int32_t>& values) {
  if (values.empty() || values[0] < 0) return ZOR_INVALID_VALUE;
  TrackerMarker* marker = nullptr;
  if (const int e = FindMarker(marker_id, &marker); e != ZOR_NO_ERROR) return e;
  marker->led = values[0];
  ++version_;
  return ZOR_NO_ERROR;
}

int TrackerTable::SetPosition(int marker_id, const std::vector<float>& values) {
  if (values.size() < 3) return ZOR_INVALID_VALUE;
  for (int i = 0; i < 3; ++i) {
    if (!std::isfinite(values[i])) return ZOR_INVALID_VALUE;
  }
  TrackerMarker* marker = nullptr;
  if (const int e = FindMarker(marker_id, &marker); e != ZOR_NO_ERROR) return e;
  marker->has_position = true;
  marker->position = Eigen::Vector3d(values[0], values[1], values[2]);
  ++version_;
  return ZOR_NO_ERROR;
}

const Tracker* TrackerTable::Find(int id) const {
  const auto it = trackers_.find(id);
  return it == trackers_.end() ? nullptr : &it->second;
}

TrackerPlan TrackerTable::Plan(const std::function<int(int)>& slot_of) const {
  TrackerPlan plan;
  std::vector<int> wanted;
  for (const auto& [id, tracker] : trackers_) {
    if (id == 1 && tracker.type == ZOR_CALIB_TRACKER) {
      for (const auto& [index, marker] : tracker.markers) {
        const int slot = marker.led >= 0 ? slot_of(marker.led) : -1;
        if (slot >= 0) plan.calibration_slots.push_back(slot);
      }
    }
    if (!tracker.enabled) continue;
    TrackerPlan::Rigid rigid{id, static_cast<int>(plan.rigid_points.size()), 0};
    for (const auto& [index, marker] : tracker.markers) {
      if (marker.led < 0) continue;
      const int slot = slot_of(marker.led);
      plan.markers.push_back({(id << 12) | index, slot});
      if (slot >= 0) wanted.push_back(slot);
      if (IsRigidType(tracker.type) && marker.has_position && slot >= 0) {
        plan.rigid_points.push_back({slot, marker.position});
        ++rigid.count;
      }
    }
    if (IsRigidType(tracker.type)) {
      plan.rigids.push_back(rigid);
      plan.max_rigid_points = std::max(plan.max_rigid_points, rigid.count);
    }
  }
  std::sort(wanted.begin(), wanted.end());
  wanted.erase(std::unique(wanted.begin(), wanted.end()), wanted.end());
  plan.wanted_slots = std::move(wanted);
  std::sort(plan.calibration_slots.begin(), plan.calibration_slots.end());
  plan.calibration_slots.erase(
      std::unique(plan.calibration_slots.begin(), plan.calibration_slots.end()),
      plan.calibration_slots.end());
  return plan;
}

}  // namespace zord
