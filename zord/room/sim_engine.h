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

#include "zord/room/bump_watch.h"
#include "zord/room/calibration_job.h"
#include "zord/room/calibration_store.h"
#include "zord/room/detect.h"
#include "zord/room/message_queue.h"
#include "zord/server/engine.h"
#include "zorsock/zorsock_feedback.h"
#include "zorsock/activity.h"
#include "zord/room/operator.h"
#include "zord/room/recon.h"
#include "zord/room/scene.h"
#include "zord/room/sim_capture.h"
#include "zord/room/trackers.h"
#include "zord/solver/wand_lengths.h"

namespace zord {

struct SimOptions {
  std::string scene_file;        // empty: the built-in scene
  std::string state_file;        // empty: do not persist the calibration
  std::string calibration_file;  // start from this calibration instead of the state file
  std::string truth_out;         // write the truth here at start
  uint64_t seed = 1;             // noise and drop-outs
  double noise_px = -1;          // pixel noise sigma; < 0: the scene's
  bool capture_tally = true;     // count captured wand frames live (ZOR_CALIB_COVERAGE)
  bool camera_watch = true;      // watch calibrated cameras for knocks (ZOR_CAMERA_WATCH)
  bool follow = false;           // the operator starts in follow mode
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
  zorsock::wire::RawHeader RawDataHeader() const override;
  int StartReplay(std::shared_ptr<const RawRecording> recording, std::string* why) override;

  // For the calibration solver: a copy of the captured wand data, with the
  // wand geometry (tracker 1) and the cameras' nominal lenses.
  CalibrationCapture CalibrationData() const;
  // Replaces the working calibration's cameras (the solver's result); the
  // server uses it at once and keeps it once a calibration session saves.
  void SetWorkingCameras(const std::vector<CameraCalibration>& cameras, int session);
  // Queues a message for ZOR_CALIB_MESSAGE.
  void PushCalibrationMessage(const std::string& message);
  // Whether a calibration run (ZOR_CALIB_RUN) is still working.
  bool Calibrating() const;

  const Scene& scene() const { return *scene_; }

  // Most wand observations kept over all captures; capturing stops there.
  static constexpr size_t kMaxCaptureObservations = 20'000'000;
  // The solver's settings for a run at the client's quality value.
  static SolverOptions CalibrationOptions(int quality);

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
  int NoteActivity(const ClientContext& who, int activity);
  int StartCalibration(const ClientContext& who, int quality);
  void FinishCalibration(const CalibrationResult& result, const WandLengths& lengths, int session);
  // Cancels a running calibration whose result would no longer apply.
  void CancelCalibration();

  // Clock-thread work of Step, outside the lock.
  void Reconstruct(const TrackerPlan& plan, const Rig& rig);
  void Report(const TrackerPlan& plan, const Rig& rig, int32_t frame, FrameData& out);
  void ReportImages(int32_t frame, FrameData& out) const;
  // `replayed`: index of the recording's frame being replayed, -1 when live.
  // False when capturing had stopped meanwhile (the frame is not part of it).
  bool CollectCapture(const TrackerPlan& plan, int32_t frame, int64_t replayed);
  // The recorded frame the next step replays (mutex held); null when live.
  const zorsock::wire::RawFrame* NextReplayFrame(int64_t* index);
  nlohmann::json ReplayControl(const nlohmann::json& request);
  // The live capture counts as ZOR_CALIB_COVERAGE carries them (mutex held).
  void CoverageInts(std::vector<int32_t>& out) const;
  // Clock thread: the bump watch of one frame, published for ZOR_CAMERA_WATCH.
  void WatchCameras(const TrackerPlan& plan, const std::shared_ptr<const Rig>& rig, double dt);
  // The working calibration as CalibrationJson makes it, with the figures of
  // the last successful run (mutex held): the "calibration" control reply.
  nlohmann::json CalibrationExport() const;
  // The wand's length frame by frame with a run's result (job thread).
  static WandLengths MeasureResultWand(const CalibrationCapture& capture,
                                       const CalibrationResult& result);
  // Keeps the figures of a successful run for ZOR_CALIB_RESULT (mutex held).
  void RememberResult(const CalibrationResult& result, const WandLengths& lengths);

  const SimOptions options_;
  const std::unique_ptr<const Scene> scene_;
  std::vector<Intrinsics> nominal_;  // the cameras' lenses before calibration

  mutable std::mutex mutex_;  // guards everything below up to the clock-thread state
  Operator operator_;
  TrackerTable trackers_;
  std::shared_ptr<const TrackerPlan> plan_;
  uint64_t plan_version_ = ~uint64_t{0};
  CalibrationState working_;
  CalibrationState saved_;
  // The last saved or solved calibration: what a session that keeps the
  // existing calibration starts from and what a closing session leaves
  // behind, so a solve is not lost with the session that asked for it.
  CalibrationState current_;
  std::shared_ptr<const Rig> rig_;
  std::optional<int> working_owner_;  // session that changed the working calibration
  bool capturing_ = false;
  std::optional<int> capture_owner_;
  // Changed in place only while capturing; a calibration run shares it, and
  // capturing is refused while one runs. Reset and close replace it.
  std::shared_ptr<CalibrationCapture> capture_ = std::make_shared<CalibrationCapture>();
  bool calibrating_ = false;
  // Replay of a raw data recording instead of the simulated cameras: the
  // frames play in a loop; a wand capture starts at the recording's first
  // frame and takes each recorded frame once (only those recorded while
  // capturing, when the recording marks any).
  std::shared_ptr<const RawRecording> replay_;
  size_t replay_next_ = 0;
  bool replay_marks_capture_ = false;
  std::vector<uint8_t> replay_taken_;
  std::optional<int> calibration_owner_;  // session whose run is working
  MessageQueue messages_;
  std::vector<std::string> final_messages_;  // the last pass's report, told with its result
  static constexpr int kLastPass = 4;
  std::vector<float> result_floats_ = {0, 0, 0, 0, -1, 0, 0};  // ZOR_CALIB_RESULT: none yet
  std::vector<ZORCameraWatch> watch_;  // ZOR_CAMERA_WATCH, as the clock thread last judged
  int successful_runs_ = 0;
  int32_t last_frame_ = -1;
  int cameras_moved_ = 0;  // the operator's count of bumps the detector has seen
  // The last ZOR_CLIENT_ACTIVITY notice and the session that sent it.
  int activity_ = ZOR_ACTIVITY_IDLE;
  std::optional<int> activity_owner_;

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
  BumpWatch bump_watch_;
  std::shared_ptr<const Rig> watched_rig_;  // the calibration bump_watch_ learned
  WandFrame tally_frame_;      // the capture's frame as the solver takes it...
  SampleFrame tally_samples_;  // ...and as it keeps it
  StraightWand tally_wand_;    // only the calibration tracker's LED ids

  // Last: destroyed first, so a running solve is cancelled and joined while
  // the state its callbacks touch still exists.
  CalibrationJob calibration_job_;
};

std::unique_ptr<Engine> CreateSimEngine(const SimOptions& options, std::string* error);

}  // namespace zord
