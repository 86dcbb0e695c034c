// The simulated capture engine behind zord: the scene's cameras see the LEDs
// the virtual operator moves, and the engine reconstructs markers and rigid
// bodies from those detections with the server's current calibration, keeps
// the trackers, the calibration state and the wand captures for calibration.
// See docs/simulator.md.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "zord/calibration_store.h"
#include "zord/detect.h"
#include "zord/engine.h"
#include "zord/operator.h"
#include "zord/recon.h"
#include "zord/scene.h"
#include "zord/sim_capture.h"
#include "zord/trackers.h"

namespace zord {

struct SimOptions {
  std::string scene_file;        // empty: the built-in scene
  std::string state_file;        // empty: do not persist the calibration
  std::string calibration_file;  // start from this calibration instead of the state file
  std::string truth_out;         // write the truth here at start
  uint64_t seed = 1;             // noise and drop-outs
  double noise_px = -1;          // pixel noise sigma; < 0: the scene's
  bool Check(std::string* why) const;
};

class SimEngine : public Engine {
 public:
  // Loads the scene and the starting calibration; null with the reason on failure.
  static std::unique_ptr<SimEngine> Create(const SimOptions& options, std::string* error);

  void Step(int32_t frame_number, double dt, int64_t time_us, FrameData& out) override;
  std::vector<ZORCamera> Cameras() const override;
  void SessionOpened(const ClientContext& who) override;
  void SessionClosed(const ClientContext& who) override;
  int TrackerOp(const ClientContext& who, int id, int op) override;
  int TrackerOpi(const ClientContext& who, int id, int op, int value) override;
  int TrackerOpf(const ClientContext& who, int id, int param, float value) override;
  int MarkerInts(const ClientContext& who, int marker_id, int code,
                 const std::vector<int32_t>& values) override;
  int MarkerFloats(const ClientContext& who, int marker_id, int code,
                   const std::vector<float>& values) override;
  int SetInteger(const ClientContext& who, int code, int value) override;
  int SetFloats(const ClientContext& who, int code, const std::vector<float>& values) override;
  int GetFloats(const ClientContext& who, int code, std::vector<float>& out) override;
  int GetInts(const ClientContext& who, int code, std::vector<int32_t>& out) override;
  int GetString(const ClientContext& who, int code, std::string& out) override;
  std::string Control(const std::string& request_json) override;

  // For the calibration solver: a copy of the captured wand data, with the
  // wand geometry (tracker 1) and the cameras' nominal lenses.
  CalibrationCapture CalibrationData() const;
  // Replaces the working calibration's cameras (the solver's result); the
  // server uses it at once and keeps it once a calibration session saves.
  void SetWorkingCameras(const std::vector<CameraCalibration>& cameras, int session);
  // Queues a message for ZOR_CALIB_MESSAGE.
  void PushCalibrationMessage(const std::string& message);

  const Scene& scene() const { return *scene_; }

  // Most wand observations kept over all captures; capturing stops there.
  static constexpr size_t kMaxCaptureObservations = 20'000'000;

 private:
  // The working calibration in the form reconstruction and reporting use.
  struct Rig {
    std::vector<CalibratedCamera> cameras;
    std::vector<RigidPlacement> reported;  // camera to world, viewer axes (ZORCamera.pose)
    RigidPlacement global;
  };

  SimEngine(std::unique_ptr<Scene> scene, const SimOptions& options);
  bool Start(std::string* error);
  CalibrationState InitialCalibration() const;

  // Call with mutex_ held.
  void RebuildRig();
  int NeedCalibration(const ClientContext& who) const;

  // Clock-thread work of Step, outside the lock.
  void Reconstruct(const TrackerPlan& plan, const Rig& rig);
  void Report(const TrackerPlan& plan, const Rig& rig, int32_t frame, FrameData& out);
  void ReportImages(int32_t frame, FrameData& out) const;
  void CollectCapture(const TrackerPlan& plan, int32_t frame);

  const SimOptions options_;
  const std::unique_ptr<const Scene> scene_;

  mutable std::mutex mutex_;  // guards everything below up to the clock-thread state
  Operator operator_;
  TrackerTable trackers_;
  std::shared_ptr<const TrackerPlan> plan_;
  uint64_t plan_version_ = ~uint64_t{0};
  CalibrationState working_;
  CalibrationState saved_;
  std::shared_ptr<const Rig> rig_;
  std::optional<int> working_owner_;  // session that changed the working calibration
  bool capturing_ = false;
  std::optional<int> capture_owner_;
  CalibrationCapture capture_;
  std::deque<std::string> messages_;
  int32_t last_frame_ = -1;

  // Clock thread only.
  Detector detector_;
  std::vector<Eigen::Vector3d> world_;
  std::vector<uint8_t> lit_;
  std::vector<Triangulated> recon_;        // by LED slot, valid for wanted slots
  std::vector<Eigen::Vector3d> last_seen_; // by LED slot
  std::vector<uint8_t> seen_before_;       // by LED slot: last_seen_ is valid
  std::vector<RigidPlacement> last_rigid_; // by tracker id
  std::vector<Eigen::Vector3d> fit_local_, fit_world_;
  std::vector<CalibrationObservation> capture_scratch_;
};

std::unique_ptr<Engine> CreateSimEngine(const SimOptions& options, std::string* error);

}  // namespace zord
