// One wand calibration on a thread of its own, so that the server keeps
// streaming while the solver works. The job turns the captured detections into
// the solver's input, runs the four passes and hands over each pass report and
// the result through callbacks on its thread. Cancelling (a session closing,
// the server stopping) stops the solver at its next check; the destructor
// cancels and waits.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "zord/room/calibration_store.h"
#include "zord/room/sim_capture.h"
#include "zord/solver/wand_calibrator.h"

namespace zord {

// The solver's view of a capture: frames in capture order, observations as
// detected, the wand's LEDs and every camera's nominal lens.
CalibrationInput MakeSolverInput(const CalibrationCapture& capture);

// The cameras of a successful run as the server stores them (cameras the run
// did not calibrate are marked uncalibrated).
std::vector<CameraCalibration> SolvedCameras(const CalibrationResult& result);

class CalibrationJob {
 public:
  using PassFn = std::function<void(const PassReport&)>;
  using DoneFn = std::function<void(const CalibrationResult&)>;

  CalibrationJob() = default;
  ~CalibrationJob();  // cancels a running job and waits for it
  CalibrationJob(const CalibrationJob&) = delete;
  CalibrationJob& operator=(const CalibrationJob&) = delete;

  // Starts a run on `capture` (released as soon as it has been converted).
  // `on_pass` and `on_done` are called on the job's thread; `on_done` is called
  // exactly once, also when the run was cancelled. The caller must not start a
  // job while one is running (it waits for the previous thread otherwise).
  void Start(std::shared_ptr<const CalibrationCapture> capture, SolverOptions options,
             PassFn on_pass, DoneFn on_done);
  // Asks a running job to stop; its result then has status kCancelled.
  void Cancel();
  // The flag of the current run, for callbacks that must not act once cancelled.
  bool Cancelled() const { return cancel_ && cancel_->load(); }

 private:
  void Join();

  std::shared_ptr<std::atomic<bool>> cancel_;
  std::thread thread_;
};

}  // namespace zord
