// The server's trackers, shared by all sessions: point trackers (their LEDs are
// reported as markers), rigid trackers and the calibration tracker (also fitted
// as a rigid body from their local marker positions). Requests return zorsock
// error codes; the table knows nothing of locking (the engine locks).
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include <Eigen/Core>

namespace zord {

constexpr int kMaxTrackerId = 1023;
constexpr int kMaxMarkerIndex = 0xfff;

struct TrackerMarker {
  int led = -1;  // LED id, -1 until assigned
  bool has_position = false;
  Eigen::Vector3d position = Eigen::Vector3d::Zero();  // local frame, mm
};

struct Tracker {
  int type = 0;
  bool enabled = false;
  std::map<int, TrackerMarker> markers;  // by marker index
  std::vector<std::pair<int, float>> options;  // (param, value), last set wins
};

// What one frame's reconstruction needs from the trackers, flattened for speed.
struct TrackerPlan {
  struct Marker {
    int32_t wire_id;  // (tracker << 12) | index
    int slot;         // scene LED slot, -1 when the scene has no such LED
  };
  struct Rigid {
    int32_t id;
    int first, count;  // range in rigid_points
  };
  struct RigidPoint {
    int slot;
    Eigen::Vector3d local;
  };
  std::vector<Marker> markers;          // markers of enabled trackers, in tracker order
  std::vector<Rigid> rigids;            // enabled rigid and calibration trackers
  std::vector<RigidPoint> rigid_points; // their markers with a position and a known LED
  std::vector<int> wanted_slots;        // LED slots to triangulate, each once
  std::vector<int> calibration_slots;   // LED slots of tracker 1 (the calibration wand)
  int max_rigid_points = 0;
};

class TrackerTable {
 public:
  int Create(int id, int type);
  int Destroy(int id);
  int Enable(int id, bool on);
  int SetOption(int id, int param, float value);
  // ZOR_MARKER_LED / ZOR_MARKER_POSITION on marker (tracker << 12) | index.
  int AssignLed(int marker_id, const std::vector<int32_t>& values);
  int SetPosition(int marker_id, const std::vector<float>& values);

  const Tracker* Find(int id) const;
  const std::map<int, Tracker>& all() const { return trackers_; }
  // Bumped by every change, so the engine knows when to rebuild its plan.
  uint64_t version() const { return version_; }

  // slot_of maps an LED id to the scene's slot (-1 if none).
  TrackerPlan Plan(const std::function<int(int)>& slot_of) const;

 private:
  // Splits and checks a marker id; the error code when it names no marker.
  int FindMarker(int marker_id, TrackerMarker** marker);

  std::map<int, Tracker> trackers_;
  uint64_t version_ = 0;
};

bool IsTrackerType(int type);
bool IsRigidType(int type);  // fitted as a rigid body

}  // namespace zord
