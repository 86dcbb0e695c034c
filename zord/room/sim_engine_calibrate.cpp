// The calibration run of a calibration session (ZOR_CALIB_RUN): the solver
// works on the captured wand detections on a thread of its own, its pass
// reports become calibration messages, and a successful result becomes the
// working calibration at once.
#include <iostream>

#include "zord/room/sim_engine.h"

namespace zord {

SolverOptions SimEngine::CalibrationOptions(int quality) {
  SolverOptions options;
  options.quality = quality;
  // Real lenses differ from their data sheet by a percent or so; leaving that
  // in the lens would bend the camera poses by centimetres.
  options.refine_intrinsics = true;
  options.refine_aspect = true;  // the simulated lenses' pixels are not quite square
  options.num_threads = 2;
  return options;
}

bool SimEngine::Calibrating() const {
  std::lock_guard lock(mutex_);
  return calibrating_;
}

int SimEngine::StartCalibration(const ClientContext& who, int quality) {
  // A second request while one runs would race the first for the result.
  if (calibrating_) return ZOR_INVALID_OPERATION;
  capturing_ = false;  // the client stops capturing first; make sure
  if (capture_->frames.empty()) {
    messages_.push_back("pass 1 failed. no wand data captured");
    return ZOR_NO_ERROR;
  }
  // The wand as the session defined it now; the nominal lenses of the scene.
  capture_->wand.clear();
  if (const Tracker* wand = trackers_.Find(1)) {
    for (const auto& [index, marker] : wand->markers) {
      if (marker.led >= 0 && marker.has_position)
        capture_->wand.push_back({marker.led, marker.position});
    }
  }
  capture_->nominal.clear();
  for (const SceneCamera& cam : scene_->cameras) capture_->nominal.push_back(cam.nominal);

  calibrating_ = true;
  final_messages_.clear();
  calibration_owner_ = who.session;
  working_owner_ = who.session;
  const int session = who.session;
  calibration_job_.Start(
      capture_, CalibrationOptions(quality),
      [this](const PassReport& report) {
        std::lock_guard lock(mutex_);
        if (calibration_job_.Cancelled()) return;
        // The last pass's success is told once its result is in place: a
        // client saves on it, and must save the new calibration.
        if (report.success && report.pass == kLastPass) {
          final_messages_ = report.Messages();
          return;
        }
        for (const std::string& message : report.Messages()) messages_.push_back(message);
      },
      [this, session, capture = capture_](const CalibrationResult& result) {
        // Measured here, on the job's thread, before the clock's lock is taken.
        FinishCalibration(result, MeasureResultWand(*capture, result), session);
      });
  return ZOR_NO_ERROR;
}

void SimEngine::FinishCalibration(const CalibrationResult& result, const WandLengths& lengths,
                                  int session) {
  std::lock_guard lock(mutex_);
  calibrating_ = false;
  calibration_owner_.reset();
  std::vector<std::string> final_messages;
  final_messages.swap(final_messages_);
  if (result.status != SolveStatus::kSuccess || calibration_job_.Cancelled()) return;
  // What the solve left out, for the operator's log (the pass messages keep their form).
  std::cerr << "zord: calibrated from " << result.samples_used << " detections in "
            << result.frames_used << " frames; " << result.outliers << " rejected as outliers, "
            << result.repeated << " left out as repeated blobs of one LED\n";
  for (const std::string& warning : result.warnings) std::cerr << "zord: " << warning << "\n";
  RememberResult(result, lengths);
  const std::vector<CameraCalibration> cameras = SolvedCameras(result);
  for (size_t i = 0; i < cameras.size() && i < working_.cameras.size(); ++i) {
    working_.cameras[i] = cameras[i];
  }
  // The solver chose a new world frame; a global transform made for the old
  // one would misplace everything.
  working_.global = RigidPlacement();
  current_ = working_;  // kept beyond the session until a save or a new solve
  working_owner_ = session;
  RebuildRig();
  for (const std::string& message : final_messages) messages_.push_back(message);
}

void SimEngine::CancelCalibration() {
  if (!calibrating_) return;
  calibration_job_.Cancel();
}

}  // namespace zord
