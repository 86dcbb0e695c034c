// The solver's current estimate, shared by the passes: camera poses and
// lenses, each frame's wand pose, and which samples count as inliers.
#pragma once

#include <cmath>
#include <optional>
#include <vector>

#include "zord/solver/camera_model.h"
#include "zord/solver/sample_set.h"
#include "zord/solver/solver_result.h"
#include "zord/solver/wand_data.h"

namespace zord {

struct CalibState {
  std::vector<Extrinsics> poses;              // per camera, world to camera
  std::vector<Intrinsics> lenses;             // per camera
  std::vector<bool> use;                      // cameras being calibrated
  std::vector<std::optional<WandPose>> wand;  // per frame of the sample set
  std::vector<std::vector<bool>> inlier;      // per frame, per sample

  // Every sample of a camera in use, in a frame with a pose, is an inlier.
  void TrustAll(const SampleSet& set);
};

// Pixel error of each sample against the wand model (per frame, per sample);
// NaN for cameras not in use and frames without a wand pose.
std::vector<std::vector<double>> SampleErrors(const SampleSet& set, const StraightWand& wand,
                                              const CalibState& state);

struct ErrorSum {
  double squared = 0;
  long residuals = 0;  // coordinates: two per sample
  double Rms() const {
    return residuals > 0 ? std::sqrt(squared / static_cast<double>(residuals)) : 0;
  }
};

// Error over the inlier samples, in total and per camera.
ErrorSum InlierError(const std::vector<std::vector<double>>& errors, const SampleSet& set,
                     const CalibState& state, std::vector<ErrorSum>* per_camera = nullptr);

// Marks as inliers the samples whose error is at most `threshold_px`;
// returns how many samples with an error were marked outliers.
int MarkInliers(const std::vector<std::vector<double>>& errors, double threshold_px,
                CalibState* state);

// Takes back, of each group of detections that one camera reports for one
// LED in one frame (SampleFrame::repeated), the single one that fits the
// current wand pose within `threshold_px`, as an inlier; a group where none
// or several fit stays aside. Returns how many were taken back.
int ResolveRepeated(const StraightWand& wand, double threshold_px, SampleSet* set,
                    CalibState* state);

// Whether the errors of some camera in some frame (inlier samples only) have
// an RMS above `knee_px`: there a robust loss acts differently from least squares.
bool AnyCameraFrameAbove(const std::vector<std::vector<double>>& errors, const SampleSet& set,
                         const CalibState& state, double knee_px);

// Robust estimate of the per-coordinate noise sigma from the median error.
double RobustSigma(const std::vector<std::vector<double>>& errors);

}  // namespace zord
