// Live counts of a growing wand capture, kept frame by frame so the operator
// sees during the capture what the solver will make of it: per camera the
// frames and samples it contributes, the part of its image they cover and
// their spread; per camera pair the frames both saw. Readiness is judged with
// the solver's own refusal rules (CoverageProblem, BuildCameraTree), so
// "ready" on screen means the solver will not refuse the camera for coverage.
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <vector>

#include "zord/solver/camera_coverage.h"
#include "zord/solver/camera_model.h"
#include "zord/solver/sample_set.h"
#include "zord/solver/solver_options.h"

namespace zord {

struct CameraTallyReport {
  CameraCoverage coverage;  // as MeasureCoverage counts it over the whole capture
  uint64_t cells = 0;       // coverage grid: bit row * kGrid + column, row 0 at the top
  bool ready = false;       // the solver takes it: enough coverage and linked to the others
};

class CaptureTally {
 public:
  static constexpr int kGrid = 8;  // the image is cut into kGrid x kGrid cells

  void Reset(int cameras);
  // One frame as the solver keeps it (a usable, cleaned SampleFrame); `lenses`
  // give each camera's image size for the grid.
  void Add(const SampleFrame& frame, const std::vector<Intrinsics>& lenses);

  int frames() const { return frames_; }
  int cameras() const { return static_cast<int>(cameras_.size()); }
  // Frames in which cameras a and b saw the same two or more LEDs.
  const CameraLinks& links() const { return links_; }
  // Per camera, judged with `options` (its minimums) against `lenses`.
  std::vector<CameraTallyReport> Report(const std::vector<Intrinsics>& lenses,
                                        const SolverOptions& options) const;

 private:
  struct Camera {
    CameraCoverage coverage;
    uint64_t cells = 0;
    Eigen::Vector2d sum = Eigen::Vector2d::Zero();
    Eigen::Matrix2d sum_sq = Eigen::Matrix2d::Zero();
  };
  std::vector<Camera> cameras_;
  CameraLinks links_;
  int frames_ = 0;
  std::vector<int> seen_;  // scratch: cameras of the frame being added
};

// One frame as BuildSampleSet keeps it, for counting a capture while it
// grows: false when the frame would be dropped (not usable, or a detection of
// a camera outside `cameras`).
bool WandSampleFrame(const std::vector<Intrinsics>& cameras, const WandFrame& frame,
                     const StraightWand& wand, SampleFrame* out);

// Spread across the narrowest direction of n points from their sum and the
// sum of their outer products (as MeasureCoverage measures a camera's).
double NarrowestSpread(const Eigen::Vector2d& sum, const Eigen::Matrix2d& sum_sq, int n);

// Adds one frame's pairs of cameras (`seen`: those with samples) to `links`:
// the LEDs both saw, and the frame when they share two or more.
void CountFramePairs(const SampleFrame& frame, const std::vector<SampleRange>& ranges,
                     const std::vector<int>& seen, CameraLinks* links);

}  // namespace zord
