#include "zord/solver/camera_coverage.h"

#include <Eigen/Eigenvalues>
#include <algorithm>
#include <array>
#include <cmath>

#include "zord/solver/capture_tally.h"

namespace zord {

std::vector<CameraCoverage> MeasureCoverage(const SampleSet& set,
                                            const std::vector<std::vector<bool>>* keep) {
  std::vector<CameraCoverage> out(set.cameras);
  std::vector<Eigen::Vector2d> sum(set.cameras, Eigen::Vector2d::Zero());
  std::vector<Eigen::Matrix2d> sum_sq(set.cameras, Eigen::Matrix2d::Zero());
  for (size_t f = 0; f < set.frames.size(); ++f) {
    const SampleFrame& frame = set.frames[f];
    const auto ranges = CameraRanges(frame, set.cameras);
    for (int c = 0; c < set.cameras; ++c) {
      int kept = 0;
      for (int i = ranges[c].first; i < ranges[c].second; ++i) kept += !keep || (*keep)[f][i];
      if (kept < 2) continue;
      ++out[c].frames;
      for (int i = ranges[c].first; i < ranges[c].second; ++i) {
        if (keep && !(*keep)[f][i]) continue;
        const Eigen::Vector2d& p = frame.samples[i].pixel;
        ++out[c].samples;
        sum[c] += p;
        sum_sq[c] += p * p.transpose();
      }
    }
  }
  for (int c = 0; c < set.cameras; ++c) out[c].spread_px = NarrowestSpread(sum[c], sum_sq[c], out[c].samples);
  return out;
}

double NarrowestSpread(const Eigen::Vector2d& sum, const Eigen::Matrix2d& sum_sq, int count) {
  if (count < 2) return 0;
  const double n = count;
  const Eigen::Matrix2d cov = sum_sq / n - (sum / n) * (sum / n).transpose();
  const double narrowest = Eigen::SelfAdjointEigenSolver<Eigen::Matrix2d>(cov).eigenvalues()(0);
  return std::sqrt(std::max(0.0, narrowest));
}

std::string CoverageProblem(const CameraCoverage& coverage, const Intrinsics& lens,
                            const SolverOptions& options) {
  if (coverage.frames < options.min_camera_frames) {
    return "has too few samples (sees the wand in " + std::to_string(coverage.frames) +
           " frames, needs " + std::to_string(options.min_camera_frames) + ")";
  }
  const double needed = options.min_image_spread * lens.height;
  if (coverage.spread_px < needed) {
    return "sees the wand only in a narrow part of its image (spread " +
           std::to_string(static_cast<int>(coverage.spread_px)) + " px, needs " +
           std::to_string(static_cast<int>(std::ceil(needed))) + ")";
  }
  return {};
}

std::vector<bool> ReachesCorners(const SampleSet& set, const std::vector<std::vector<bool>>* keep,
                                 const std::vector<Intrinsics>& lenses) {
  constexpr double kOuter = 0.7;      // of the distance to the furthest corner
  constexpr int kPerQuadrant = 40;    // samples beyond it in a quadrant that counts
  std::vector<std::array<int, 4>> outer(set.cameras, {0, 0, 0, 0});
  for (size_t f = 0; f < set.frames.size(); ++f) {
    for (size_t i = 0; i < set.frames[f].samples.size(); ++i) {
      if (keep && !(*keep)[f][i]) continue;
      const Sample& s = set.frames[f].samples[i];
      const Intrinsics& k = lenses[s.camera];
      const Eigen::Vector2d d(s.pixel.x() - k.cx, s.pixel.y() - k.cy);
      const double corner = std::hypot(std::max(k.cx, k.width - k.cx), std::max(k.cy, k.height - k.cy));
      if (d.norm() > kOuter * corner) ++outer[s.camera][(d.x() > 0) + 2 * (d.y() > 0)];
    }
  }
  std::vector<bool> out(set.cameras);
  for (int c = 0; c < set.cameras; ++c) {
    out[c] = std::count_if(outer[c].begin(), outer[c].end(),
                           [](int n) { return n >= kPerQuadrant; }) >= 3;
  }
  return out;
}

CameraLinks CountSharedSamples(const SampleSet& set) {
  const int n = set.cameras;
  CameraLinks links{Eigen::MatrixXi::Zero(n, n), Eigen::MatrixXi::Zero(n, n)};
  std::vector<int> seen;
  for (const SampleFrame& frame : set.frames) {
    const auto ranges = CameraRanges(frame, n);
    seen.clear();
    for (int c = 0; c < n; ++c)
      if (ranges[c].second > ranges[c].first) seen.push_back(c);
    CountFramePairs(frame, ranges, seen, &links);
  }
  return links;
}

void CountFramePairs(const SampleFrame& frame, const std::vector<SampleRange>& ranges,
                     const std::vector<int>& seen, CameraLinks* links) {
  for (size_t i = 0; i < seen.size(); ++i) {
    for (size_t j = i + 1; j < seen.size(); ++j) {
      const int a = seen[i], b = seen[j];
      int common = 0;
      ForEachCommonLed(frame, ranges[a], ranges[b], [&](int, int) { ++common; });
      links->shared_samples(a, b) += common;
      links->shared_samples(b, a) += common;
      if (common >= 2) {
        ++links->shared_frames(a, b);
        ++links->shared_frames(b, a);
      }
    }
  }
}

}  // namespace zord
