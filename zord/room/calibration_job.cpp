#include "zord/room/calibration_job.h"

namespace zord {

CalibrationInput MakeSolverInput(const CalibrationCapture& capture) {
  CalibrationInput input;
  input.cameras = capture.nominal;
  input.frames.reserve(capture.frames.size());
  for (const CalibrationFrame& f : capture.frames) {
    WandFrame frame;
    frame.number = f.frame;
    frame.observations.reserve(f.count);
    for (const CalibrationObservation& o : capture.Observations(f)) {
      frame.observations.push_back({o.camera, o.led, o.u, o.v});
    }
    input.frames.push_back(std::move(frame));
  }
  for (const WandMarker& m : capture.wand) input.wand.push_back({m.led, m.position});
  return input;
}

std::vector<CameraCalibration> SolvedCameras(const CalibrationResult& result) {
  std::vector<CameraCalibration> cameras(result.calibrated.size());
  for (size_t i = 0; i < cameras.size(); ++i) {
    cameras[i].calibrated = result.calibrated[i];
    if (!cameras[i].calibrated) continue;
    cameras[i].lens = result.intrinsics[i];
    cameras[i].pose = result.extrinsics[i];
  }
  return cameras;
}

CalibrationJob::~CalibrationJob() {
  Cancel();
  Join();
}

void CalibrationJob::Cancel() {
  if (cancel_) cancel_->store(true);
}

void CalibrationJob::Join() {
  if (thread_.joinable()) thread_.join();
}

void CalibrationJob::Start(std::shared_ptr<const CalibrationCapture> capture, SolverOptions options,
                           PassFn on_pass, DoneFn on_done) {
  Join();
  cancel_ = std::make_shared<std::atomic<bool>>(false);
  options.cancel = cancel_.get();
  // The thread keeps its own reference to the flag: the job may start a new
  // run (with a new flag) only after this thread has been joined anyway.
  thread_ = std::thread([capture = std::move(capture), options, cancel = cancel_,
                         on_pass = std::move(on_pass), on_done = std::move(on_done)]() mutable {
    const CalibrationInput input = MakeSolverInput(*capture);
    capture.reset();  // the solver has its own copy; let the capture change again
    CalibrationResult result;
    if (!cancel->load()) result = CalibrateWand(input, options, on_pass);
    if (cancel->load()) result.status = SolveStatus::kCancelled;
    on_done(result);
  });
}

}  // namespace zord
