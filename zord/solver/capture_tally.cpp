#include "zord/solver/capture_tally.h"

#include <algorithm>

#include "zord/solver/relative_poses.h"

namespace zord {

void CaptureTally::Reset(int cameras) {
  cameras_.assign(cameras, Camera{});
  links_ = {Eigen::MatrixXi::Zero(cameras, cameras), Eigen::MatrixXi::Zero(cameras, cameras)};
  frames_ = 0;
}

void CaptureTally::Add(const SampleFrame& frame, const std::vector<Intrinsics>& lenses) {
  const int n = cameras();
  ++frames_;
  const auto ranges = CameraRanges(frame, n);
  seen_.clear();
  for (int c = 0; c < n; ++c) {
    if (ranges[c].second == ranges[c].first) continue;
    seen_.push_back(c);
    if (ranges[c].second - ranges[c].first < 2) continue;  // as MeasureCoverage counts
    Camera& cam = cameras_[c];
    ++cam.coverage.frames;
    const Intrinsics& lens = lenses[c];
    for (int i = ranges[c].first; i < ranges[c].second; ++i) {
      const Eigen::Vector2d& p = frame.samples[i].pixel;
      ++cam.coverage.samples;
      cam.sum += p;
      cam.sum_sq += p * p.transpose();
      const int col = std::clamp(static_cast<int>(p.x() * kGrid / lens.width), 0, kGrid - 1);
      const int row = std::clamp(static_cast<int>(p.y() * kGrid / lens.height), 0, kGrid - 1);
      cam.cells |= uint64_t{1} << (row * kGrid + col);
    }
  }
  CountFramePairs(frame, ranges, seen_, &links_);  // as CountSharedSamples counts them
}

std::vector<CameraTallyReport> CaptureTally::Report(const std::vector<Intrinsics>& lenses,
                                                    const SolverOptions& options) const {
  const int n = cameras();
  std::vector<CameraTallyReport> out(n);
  std::vector<bool> covered(n);
  for (int c = 0; c < n; ++c) {
    const Camera& cam = cameras_[c];
    out[c].coverage = cam.coverage;
    out[c].coverage.spread_px = NarrowestSpread(cam.sum, cam.sum_sq, cam.coverage.samples);
    out[c].cells = cam.cells;
    covered[c] = CoverageProblem(out[c].coverage, lenses[c], options).empty();
  }
  // Linked as the solver's first pass links them: in the camera tree.
  const CameraTree tree = BuildCameraTree(links_, covered, options.min_shared_frames);
  const bool enough = tree.order.size() >= 2;  // the solver needs two cameras at least
  for (int c = 0; c < n; ++c)
    out[c].ready = enough && covered[c] && (c == tree.root || tree.parent[c] >= 0);
  return out;
}

}  // namespace zord
