#include "zord/solver/wand_calibrator.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "zord/solver/bundle_adjustment.h"
#include "zord/solver/calib_state.h"
#include "zord/solver/camera_coverage.h"
#include "zord/solver/pose_chain.h"
#include "zord/solver/pose_uncertainty.h"
#include "zord/solver/relative_poses.h"
#include "zord/solver/resection.h"
#include "zord/solver/sample_set.h"
#include "zord/solver/wand_refit.h"
#include "zord/solver/world_frame.h"

namespace zord {
namespace {

constexpr double kWandStraightnessMm = 2.0;
// First wand poses come from plain triangulation: views further off than this
// many times the outlier threshold are left out of it.
constexpr double kTriangulationRejectFactor = 10.0;
// A camera posed again within this of its pose has not moved.
constexpr double kSamePoseMm = 5.0, kSamePoseRad = 1e-3;

std::string CameraName(int index) {
  return "Camera " + std::to_string(index + 1);
}

class WandCalibration {
 public:
  WandCalibration(const CalibrationInput& input, const SolverOptions& options,
                  const PassCallback& on_pass)
      : input_(input), options_(options), on_pass_(on_pass) {}

  CalibrationResult Run() {
    const int n = static_cast<int>(input_.cameras.size());
    result_.calibrated.assign(n, false);
    result_.extrinsics.assign(n, Extrinsics{});
    result_.intrinsics = input_.cameras;
    result_.camera_rms_px.assign(n, -1);
    result_.camera_samples.assign(n, 0);
    result_.lens_refined.assign(n, false);
    result_.uncertainty.assign(n, PoseUncertainty{});
    pass_start_ = Clock::now();
    if (Prepare() && RelativePoses() && Chain() && RobustAdjustment() && FinalRefinement())
      Finish();
    if (options_.Cancelled() && result_.status != SolveStatus::kSuccess)
      result_.status = SolveStatus::kCancelled;
    return std::move(result_);
  }

 private:
  using Clock = std::chrono::steady_clock;

  bool Report(int pass, bool success, double rms, const std::string& reason, int camera) {
    if (options_.Cancelled()) return false;
    PassReport report;
    report.pass = pass;
    report.success = success;
    report.rms_px = success ? rms : -1;
    report.reason = reason;
    report.camera = camera;
    const Clock::time_point now = Clock::now();
    report.seconds = std::chrono::duration<double>(now - pass_start_).count();
    pass_start_ = now;
    result_.passes.push_back(report);
    if (on_pass_) on_pass_(report);
    return success;
  }
  bool Fail(int pass, const std::string& reason, int camera = -1) {
    return Report(pass, false, 0, reason, camera);
  }
  bool Succeed(int pass, double rms) { return Report(pass, true, rms, {}, -1); }

  // Refuses a camera, or with allow_uncalibrated_cameras leaves it out.
  bool Refuse(int pass, int camera, const std::string& problem) {
    if (!options_.allow_uncalibrated_cameras)
      return Fail(pass, CameraName(camera) + " " + problem, camera);
    state_.use[camera] = false;
    result_.warnings.push_back(CameraName(camera) + " left uncalibrated: " + problem);
    return true;
  }

  int CamerasInUse() const {
    return static_cast<int>(std::count(state_.use.begin(), state_.use.end(), true));
  }

  bool Prepare() {
    const int n = static_cast<int>(input_.cameras.size());
    if (const std::string problem = options_.Check(); !problem.empty())
      return Fail(1, "bad options: " + problem);
    if (n < 2) return Fail(1, "calibration needs at least two cameras");
    for (int c = 0; c < n; ++c) {
      const Intrinsics& k = input_.cameras[c];
      if (!(k.fx > 0 && k.fy > 0 && std::isfinite(k.fx) && std::isfinite(k.fy) &&
            std::isfinite(k.cx) && std::isfinite(k.cy) && std::isfinite(k.k1) && std::isfinite(k.k2) && std::isfinite(k.p1) &&
            std::isfinite(k.p2) && k.width > 0 &&
            k.height > 0))
        return Fail(1, CameraName(c) + " has an invalid lens description", c);
    }
    std::string error;
    if (!MakeStraightWand(input_.wand, kWandStraightnessMm, &wand_, &error)) return Fail(1, error);
    if (!BuildSampleSet(input_.cameras, input_.frames, wand_, options_.quality, &set_, &error))
      return Fail(1, error);
    state_.poses.assign(n, Extrinsics{});
    state_.lenses = input_.cameras;
    state_.use.assign(n, true);
    return !options_.Cancelled();
  }

  bool RelativePoses() {
    const std::vector<CameraCoverage> coverage = MeasureCoverage(set_);
    for (int c = 0; c < set_.cameras; ++c) {
      const std::string problem = CoverageProblem(coverage[c], input_.cameras[c], options_);
      if (!problem.empty() && !Refuse(1, c, problem)) return false;
    }
    tree_ = BuildCameraTree(CountSharedSamples(set_), state_.use, options_.min_shared_frames);
    for (int c = 0; c < set_.cameras; ++c) {
      if (!state_.use[c] || c == tree_.root || tree_.parent[c] >= 0) continue;
      const std::string problem =
          "shares fewer than " + std::to_string(options_.min_shared_frames) +
          " wand frames with the cameras linked to " + CameraName(tree_.root);
      if (!Refuse(1, c, problem)) return false;
    }
    if (CamerasInUse() < 2) return Fail(1, "fewer than two cameras saw enough of the wand");

    relative_.assign(set_.cameras, Extrinsics{});
    ErrorSum error;
    for (int c : tree_.order) {
      if (c == tree_.root) continue;
      if (options_.Cancelled()) return false;
      const PairPose pair = EstimatePairPose(set_, tree_.parent[c], c, input_.cameras, options_);
      if (!pair.problem.empty())
        return Fail(1,
                    CameraName(c) + " and camera " + std::to_string(tree_.parent[c] + 1) + ": " +
                        pair.problem,
                    c);
      relative_[c] = pair.relative;
      error.squared += pair.squared_error_px;
      error.residuals += pair.residuals;
    }
    return Succeed(1, error.Rms());
  }

  bool Chain() {
    for (int c : tree_.order) {
      if (c == tree_.root) continue;
      const auto scale = EstimatePairScale(set_, wand_, tree_.parent[c], c, relative_[c]);
      if (!scale)
        return Fail(2,
                    CameraName(c) + " shares too few wand frames with camera " +
                        std::to_string(tree_.parent[c] + 1) + " to measure the wand",
                    c);
      relative_[c].translation *= *scale;
    }
    state_.poses = ChainPoses(tree_, relative_);
    TriangulateWand();
    // The error of this pass leaves out what is far off.
    const auto errors = SampleErrors(set_, wand_, state_);
    MarkInliers(errors, RejectThreshold(), &state_);
    const int posed = static_cast<int>(std::count_if(state_.wand.begin(), state_.wand.end(),
                                                     [](const auto& w) { return w.has_value(); }));
    if (posed < options_.min_camera_frames)
      return Fail(2, "too few wand frames could be triangulated");
    return Succeed(2, InlierError(errors, set_, state_).Rms()) && !options_.Cancelled();
  }

  double RejectThreshold() const {
    return kTriangulationRejectFactor * options_.outlier_threshold_px;
  }

  void TriangulateWand() {
    state_.wand = TriangulateWandPoses(set_, wand_, state_.poses, state_.lenses, state_.use,
                                       RejectThreshold());
    state_.TrustAll(set_);
  }

  // Outlier threshold from the current errors: the fixed one, or more when
  // the errors as a whole are larger (a lens not yet refined).
  double OutlierThreshold(const std::vector<std::vector<double>>& errors,
                          bool final_model = false) const {
    const double least =
        final_model ? options_.final_outlier_threshold_px : options_.outlier_threshold_px;
    return std::max(least, options_.outlier_sigmas * RobustSigma(errors));
  }

  // Refuses cameras whose inliers no longer give enough coverage.
  bool CheckCoverage(int pass) {
    const std::vector<CameraCoverage> coverage = MeasureCoverage(set_, &state_.inlier);
    for (int c = 0; c < set_.cameras; ++c) {
      if (!state_.use[c]) continue;
      const std::string problem = CoverageProblem(coverage[c], input_.cameras[c], options_);
      if (!problem.empty()) {
        if (c == tree_.root)
          return Fail(pass, CameraName(c) + " " + problem, c);  // the gauge camera
        if (!Refuse(pass, c, problem + " after outlier rejection")) return false;
      }
    }
    return true;
  }

  // Adjusts jointly the frames of `subset_` (all when it is empty), then fits
  // the wand poses of the other frames to the result.
  bool Adjust(int pass, BundleSettings settings) {
    settings.frames = subset_;
    const BundleOutcome outcome = AdjustBundle(set_, wand_, settings, options_, &state_);
    if (!outcome.ok) return !outcome.cancelled && Fail(pass, outcome.problem);
    parameters_ = outcome.parameters;
    if (!rest_.empty()) {
      const double knee = settings.robust ? options_.robust_loss_px : 0;
      parameters_ += 5 * RefitWandPoses(set_, wand_, rest_, knee, &state_);
    }
    return true;
  }

  // A camera most of whose detections miss the wand that the others agree
  // on started from a wrong pose (facing a shiny wall, its pair estimate can
  // follow the wand's reflection): it is posed again from the wand. True when
  // any camera moved.
  bool RepositionStrayCameras(const std::vector<std::vector<double>>& errors) {
    const double threshold = OutlierThreshold(errors);
    std::vector<int> seen(set_.cameras, 0), fit(set_.cameras, 0);
    for (size_t f = 0; f < errors.size(); ++f) {
      for (size_t i = 0; i < errors[f].size(); ++i) {
        if (std::isnan(errors[f][i])) continue;
        const int c = set_.frames[f].samples[i].camera;
        ++seen[c];
        fit[c] += errors[f][i] <= threshold;
      }
    }
    bool moved = false;
    // The resection's own threshold follows the noise alone: seen from afar, a
    // wand's mirror image nearly fits a camera farther off along its view,
    // within a couple of pixels but not within the noise.
    const double tight = options_.outlier_sigmas * RobustSigma(errors);
    for (int c = 0; c < set_.cameras; ++c) {
      if (!state_.use[c] || c == tree_.root || 2 * fit[c] >= seen[c]) continue;
      Extrinsics pose;
      if (!ResectCamera(set_, wand_, state_, c, tight, 2 * options_.min_camera_frames, &pose))
        continue;
      // Posed where it already was (its wand is seen only with its reflection,
      // set aside until the end of the pass): nothing to adjust again.
      const Extrinsics& was = state_.poses[c];
      moved = moved || (pose.Centre() - was.Centre()).norm() > kSamePoseMm ||
              pose.rotation.angularDistance(was.rotation) > kSamePoseRad;
      state_.poses[c] = pose;
    }
    return moved;
  }

  bool RobustAdjustment() {
    BundleSettings settings;
    settings.robust = true;
    settings.fixed_camera = tree_.root;
    // With the lenses still to be refined, pass 4 adjusts everything again anyway.
    settings.function_tolerance = options_.refine_intrinsics ? 1e-5 : 1e-9;
    // So are its cameras and lenses: from a long capture an even subset of
    // the frames determines them as well as every frame does, at a fraction
    // of the cost; the other frames' wand poses follow the cameras.
    if (options_.refine_intrinsics &&
        set_.frames.size() > static_cast<size_t>(options_.max_lens_frames)) {
      subset_ = SelectEvenly(set_.frames.size(), options_.max_lens_frames);
      rest_ = FramesOutside(set_.frames.size(), subset_);
    }
    // A camera that starts from a wrong pose is posed again first, and the
    // samples far off the wand stay out: many of them (a shiny wall's
    // reflections) pull a camera away together even under a robust loss.
    auto errors = SampleErrors(set_, wand_, state_);
    if (RepositionStrayCameras(errors)) {
      TriangulateWand();
      errors = SampleErrors(set_, wand_, state_);
    }
    MarkInliers(errors, RejectThreshold(), &state_);
    if (!Adjust(3, settings)) return false;
    errors = SampleErrors(set_, wand_, state_);
    if (RepositionStrayCameras(errors)) {
      TriangulateWand();
      MarkInliers(SampleErrors(set_, wand_, state_), RejectThreshold(), &state_);
      if (!Adjust(3, settings)) return false;
      errors = SampleErrors(set_, wand_, state_);
    }
    // Huber matches least squares below its knee: when no error reached it and
    // no sample is dropped or added, this is already the least-squares solution.
    const std::vector<std::vector<bool>> adjusted = state_.inlier;
    // Of an LED seen twice by one camera (a reflection, a misread id) the blob
    // that fits the wand joins the samples.
    if (ResolveRepeated(wand_, OutlierThreshold(errors), &set_, &state_) > 0)
      errors = SampleErrors(set_, wand_, state_);
    least_squares_ = !AnyCameraFrameAbove(errors, set_, state_, options_.robust_loss_px);
    MarkInliers(errors, OutlierThreshold(errors), &state_);
    least_squares_ = least_squares_ && state_.inlier == adjusted;
    if (!CheckCoverage(3)) return false;
    return Succeed(3, InlierError(errors, set_, state_).Rms()) && !options_.Cancelled();
  }

  // Decides per camera which lens values the data supports: a lens whose
  // freedom would let the pose drift (its pose uncertainty grows by more
  // than max_lens_inflation when the lens is freed) is held at the nominal
  // values. The ratio does not depend on the noise, which the unrefined
  // lenses still inflate here.
  void ChooseLensTerms(const std::vector<std::vector<double>>& errors) {
    const double sigma = RobustSigma(errors);
    lens_terms_.assign(set_.cameras, 0);
    if (!options_.refine_intrinsics) return;
    const std::vector<bool> reach_corners = ReachesCorners(set_, &state_.inlier, input_.cameras);
    for (int c = 0; c < set_.cameras; ++c) {
      if (!state_.use[c]) continue;
      const PoseUncertainty held =
          CameraPoseUncertainty(set_, wand_, state_, c, sigma, nullptr, false);
      const PoseUncertainty free = CameraPoseUncertainty(set_, wand_, state_, c, sigma,
                                                         &options_.lens_prior, options_.refine_aspect);
      const double inflation = free.position_mm / held.position_mm;
      if (!held.determined || !free.determined || !(inflation <= options_.max_lens_inflation)) {
        char detail[200];
        std::snprintf(detail, sizeof detail,
                      "%s: lens held at its nominal values, its samples cover too little of "
                      "its image to refine it (a free lens makes its pose %.1f times less certain)",
                      CameraName(c).c_str(), inflation);
        result_.warnings.push_back(detail);
        continue;
      }
      lens_terms_[c] = kLensFocal | kLensCentre | kLensRadial1 |
                       (options_.refine_aspect ? kLensAspect : 0u) |
                       (reach_corners[c] ? kLensRadial2 | kLensTangential : 0u);
    }
  }

  // Refuses by name a camera whose pose the final solve leaves uncertain by
  // more than max_pose_std_mm, its lens free within what is known of it.
  bool JudgePoses(int pass, const std::vector<std::vector<double>>& errors) {
    const double sigma = RobustSigma(errors);
    for (int c = 0; c < set_.cameras; ++c) {
      if (!state_.use[c]) continue;
      const PoseUncertainty u = CameraPoseUncertainty(set_, wand_, state_, c, sigma,
                                                      &options_.lens_prior, options_.refine_aspect);
      result_.uncertainty[c] = u;
      result_.lens_refined[c] = lens_terms_[c] != 0;
      if (u.determined && u.position_mm <= options_.max_pose_std_mm) continue;
      char detail[200];
      std::snprintf(detail, sizeof detail,
                    "sees too little of the wand to fix its pose (uncertain by %.1f mm, %.2f "
                    "degrees; at most %.1f mm allowed)",
                    u.position_mm, u.rotation_deg, options_.max_pose_std_mm);
      if (c == tree_.root) return Fail(pass, CameraName(c) + " " + detail, c);
      if (!Refuse(pass, c, detail)) return false;
    }
    return true;
  }

  bool FinalRefinement() {
    BundleSettings settings;
    settings.fixed_camera = tree_.root;
    settings.function_tolerance = 1e-10;
    ChooseLensTerms(SampleErrors(set_, wand_, state_));
    const int lens_parameters = LensParameters();
    bool adjusted = least_squares_ && lens_parameters == 0;
    if (lens_parameters > 0) {
      BundleSettings lens = settings;
      lens.lens_terms = lens_terms_;
      if (!Adjust(4, lens)) return false;
    } else if (!adjusted && !Adjust(4, settings)) {
      return false;
    }
    // The final model may move the outlier boundary, and draws it tighter:
    // re-decide and adjust once more.
    auto errors = SampleErrors(set_, wand_, state_);
    const std::vector<std::vector<bool>> before = state_.inlier;
    MarkInliers(errors, OutlierThreshold(errors, true), &state_);
    if (state_.inlier != before) {
      if (!CheckCoverage(4) || !Adjust(4, settings)) return false;
      parameters_ += lens_parameters;
      errors = SampleErrors(set_, wand_, state_);
    }
    std::vector<ErrorSum> per_camera;
    const ErrorSum total = InlierError(errors, set_, state_, &per_camera);
    std::vector<double> rms;
    for (int c = 0; c < set_.cameras; ++c) {
      if (!state_.use[c]) continue;
      result_.camera_rms_px[c] = per_camera[c].Rms();
      result_.camera_samples[c] = static_cast<int>(per_camera[c].residuals / 2);
      rms.push_back(per_camera[c].Rms());
    }
    // Compared with the typical camera: a bad one also raises the overall RMS.
    std::nth_element(rms.begin(), rms.begin() + (rms.size() - 1) / 2, rms.end());
    const double typical = rms[(rms.size() - 1) / 2];
    for (int c = 0; c < set_.cameras; ++c) {
      if (!state_.use[c] || per_camera[c].Rms() <= options_.max_camera_rms_ratio * typical)
        continue;
      char detail[160];
      std::snprintf(detail, sizeof detail,
                    "reprojects with %.3f px, far above the %.3f px of a typical camera",
                    per_camera[c].Rms(), typical);
      if (!Refuse(4, c, detail)) return false;
    }
    if (!JudgePoses(4, errors)) return false;
    result_.rms_px = total.Rms();
    result_.samples_used = static_cast<int>(total.residuals / 2);
    return Succeed(4, total.Rms());
  }

  // Free lens values of the final adjustment.
  int LensParameters() const {
    int n = 0;
    for (unsigned t : lens_terms_) {
      n += !!(t & kLensFocal) + !!(t & kLensAspect) + 2 * !!(t & kLensCentre) +
           !!(t & kLensRadial1) + !!(t & kLensRadial2) + 2 * !!(t & kLensTangential);
    }
    return n;
  }

  // The detections of the posed frames and calibrated cameras left out.
  void ListRejected() {
    for (size_t f = 0; f < set_.frames.size(); ++f) {
      const SampleFrame& frame = set_.frames[f];
      if (!state_.wand[f]) continue;
      for (size_t i = 0; i < frame.samples.size(); ++i) {
        if (!state_.use[frame.samples[i].camera] || state_.inlier[f][i]) continue;
        result_.rejected.push_back({frame.source, frame.samples[i].source, false});
        ++result_.outliers;
      }
      for (const Sample& s : frame.repeated) {
        if (!state_.use[s.camera]) continue;
        result_.rejected.push_back({frame.source, s.source, true});
        ++result_.repeated;
      }
    }
  }

  void Finish() {
    ListRejected();
    MoveWorld(ChooseWorldFrame(state_, &result_.world), &state_);
    for (int c = 0; c < set_.cameras; ++c) {
      result_.calibrated[c] = state_.use[c];
      if (!state_.use[c]) continue;
      result_.extrinsics[c] = state_.poses[c];
      result_.intrinsics[c] = state_.lenses[c];
    }
    for (const auto& w : state_.wand)
      if (w) result_.wand_poses.push_back(*w);
    result_.frames_used = static_cast<int>(result_.wand_poses.size());
    result_.parameters = parameters_;
    result_.status = SolveStatus::kSuccess;
  }

  const CalibrationInput& input_;
  const SolverOptions& options_;
  const PassCallback& on_pass_;
  CalibrationResult result_;
  Clock::time_point pass_start_;

  StraightWand wand_;
  SampleSet set_;
  CameraTree tree_;
  std::vector<Extrinsics> relative_;
  // With the lenses refined on a long capture, the frames adjusted jointly;
  // the wand poses of the rest are fitted to their cameras. Both empty: every
  // frame is adjusted jointly.
  std::vector<size_t> subset_, rest_;
  CalibState state_;
  int parameters_ = 0;
  bool least_squares_ = false;  // the robust adjustment's result is the least-squares one
  std::vector<unsigned> lens_terms_;  // per camera, the lens values refined (LensTerm)
};

}  // namespace

CalibrationResult CalibrateWand(const CalibrationInput& input, const SolverOptions& options,
                                const PassCallback& on_pass) {
  return WandCalibration(input, options, on_pass).Run();
}

}  // namespace zord
