// What the engine tells clients about the calibration beside its messages:
// the live coverage of the wand capture, the figures of the last run, and the
// cameras that may have moved since.
#include "zord/room/sim_engine.h"
#include "calibfile/calibration_file.h"
#include "zord/room/calibration_export.h"
#include "zord/room/calibration_job.h"
#include "zord/solver/calibration_grade.h"
#include "zorsock/feedback_wire.h"

namespace zord {
namespace {

constexpr double kWandStraightnessMm = 2.0;  // as the solver takes the wand

}  // namespace

void SimEngine::CoverageInts(std::vector<int32_t>& out) const {
  // Judged as a full-quality run judges them: the solver's own minimums.
  const SolverOptions options = CalibrationOptions(0);
  zorsock::wire::CoverageReply reply;
  const int n = static_cast<int>(scene_->cameras.size());
  reply.summary = {n, 0, options.min_camera_frames, options.min_shared_frames,
                   static_cast<float>(options.min_image_spread)};
  reply.cameras.resize(n);
  reply.shared_frames.assign(static_cast<size_t>(n) * n, 0);
  const CaptureTally& tally = capture_->tally;
  if (tally.cameras() == n) {
    reply.summary.frames = tally.frames();
    const std::vector<CameraTallyReport> report = tally.Report(nominal_, options);
    for (int c = 0; c < n; ++c) {
      ZORCoverage& cov = reply.cameras[c];
      cov.frames = report[c].coverage.frames;
      cov.samples = report[c].coverage.samples;
      cov.ready = report[c].ready ? 1 : 0;
      cov.cells[0] = static_cast<uint32_t>(report[c].cells);
      cov.cells[1] = static_cast<uint32_t>(report[c].cells >> 32);
      cov.spread = static_cast<float>(report[c].coverage.spread_px / nominal_[c].height);
      for (int d = 0; d < n; ++d) reply.shared_frames[c * n + d] = tally.links().shared_frames(c, d);
    }
  }
  for (int c = 0; c < n; ++c) reply.cameras[c].camera = c;
  out = zorsock::wire::EncodeCoverage(reply);
}

void SimEngine::WatchCameras(const TrackerPlan& plan, const std::shared_ptr<const Rig>& rig,
                             double dt) {
  if (rig != watched_rig_) {  // a new calibration: its level is learned afresh
    bump_watch_.Reset(static_cast<int>(rig->cameras.size()));
    watched_rig_ = rig;
  }
  if (!bump_watch_.Check(rig->cameras, detector_, plan.wanted_slots, dt)) return;
  std::vector<ZORCameraWatch> watch;
  for (size_t c = 0; c < rig->cameras.size(); ++c) {
    if (!rig->cameras[c].calibrated) continue;
    const CameraWatch& w = bump_watch_.cameras()[c];
    watch.push_back({static_cast<int32_t>(c), w.moved ? 1 : 0, static_cast<float>(w.residual_px),
                     static_cast<float>(w.level_px)});
  }
  std::lock_guard lock(mutex_);
  watch_ = std::move(watch);
}

WandLengths SimEngine::MeasureResultWand(const CalibrationCapture& capture, const CalibrationResult& result) {
  if (result.status != SolveStatus::kSuccess) return {};
  const CalibrationInput input = MakeSolverInput(capture);
  StraightWand wand;
  SampleSet set;
  std::string error;
  if (!MakeStraightWand(input.wand, kWandStraightnessMm, &wand, &error) ||
      !BuildSampleSet(result.intrinsics, input.frames, wand, 0, &set, &error))
    return {};
  return MeasureWandLengths(set, wand, result.extrinsics, result.intrinsics, result.calibrated,
                            SolverOptions().outlier_threshold_px);
}

nlohmann::json SimEngine::CalibrationExport() const {
  zorsock::wire::ResultReply result;
  if (!zorsock::wire::DecodeResult(result_floats_, &result)) result = {};
  nlohmann::json out = calibfile::CalibrationJson(CameraModels(working_, nominal_), result.summary, result.cameras);
  out["ok"] = true;
  return out;
}

void SimEngine::RememberResult(const CalibrationResult& result, const WandLengths& lengths) {
  zorsock::wire::ResultReply reply;
  reply.summary = {static_cast<int32_t>(result.calibrated.size()),
                   static_cast<int32_t>(GradeCalibration(result, lengths.std_mm)),
                   static_cast<float>(result.rms_px),
                   static_cast<float>(lengths.mean_mm),
                   static_cast<float>(lengths.std_mm),
                   result.frames_used, ++successful_runs_};
  for (size_t c = 0; c < result.calibrated.size(); ++c) {
    const PoseUncertainty& u = result.uncertainty[c];
    reply.cameras.push_back({static_cast<int32_t>(c), result.calibrated[c] ? 1 : 0,
                             result.camera_samples[c], static_cast<float>(result.camera_rms_px[c]),
                             static_cast<float>(u.position_mm), static_cast<float>(u.rotation_deg)});
  }
  result_floats_ = zorsock::wire::EncodeResult(reply);
}

}  // namespace zord
