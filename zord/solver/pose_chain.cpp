#include "zord/solver/pose_chain.h"

#include <algorithm>
#include <cmath>

#include "zord/solver/triangulation.h"

namespace zord {

std::optional<double> EstimatePairScale(const SampleSet& set, const StraightWand& wand, int parent,
                                        int child, const Extrinsics& relative) {
  const std::vector<Extrinsics> views = {Extrinsics{}, relative};
  std::vector<double> ratios;
  for (const SampleFrame& frame : set.frames) {
    const auto ranges = CameraRanges(frame, set.cameras);
    // Outermost pair of LEDs both cameras see (smallest and largest offset).
    int lo_a = -1, lo_b = -1, hi_a = -1, hi_b = -1;
    ForEachCommonLed(frame, ranges[parent], ranges[child], [&](int i, int j) {
      const double s = wand.offsets[frame.samples[i].led];
      if (lo_a < 0 || s < wand.offsets[frame.samples[lo_a].led]) lo_a = i, lo_b = j;
      if (hi_a < 0 || s > wand.offsets[frame.samples[hi_a].led]) hi_a = i, hi_b = j;
    });
    if (lo_a < 0 || lo_a == hi_a) continue;
    const auto lo = TriangulateNormalized(
        views, {frame.samples[lo_a].normalized, frame.samples[lo_b].normalized});
    const auto hi = TriangulateNormalized(
        views, {frame.samples[hi_a].normalized, frame.samples[hi_b].normalized});
    if (!lo || !hi || (*hi - *lo).norm() <= 0) continue;
    const double known =
        wand.offsets[frame.samples[hi_a].led] - wand.offsets[frame.samples[lo_a].led];
    ratios.push_back(known / (*hi - *lo).norm());
  }
  if (ratios.size() < 3) return std::nullopt;
  auto middle = ratios.begin() + static_cast<long>(ratios.size() / 2);
  std::nth_element(ratios.begin(), middle, ratios.end());
  return *middle;
}

std::vector<Extrinsics> ChainPoses(const CameraTree& tree,
                                   const std::vector<Extrinsics>& relative) {
  std::vector<Extrinsics> poses(tree.parent.size());
  for (int c : tree.order) {
    if (c == tree.root) continue;
    const Extrinsics& from = poses[tree.parent[c]];
    // X_c = R_rel (R_p X + t_p) + t_rel
    poses[c].rotation = (relative[c].rotation * from.rotation).normalized();
    poses[c].translation = relative[c].rotation * from.translation + relative[c].translation;
  }
  return poses;
}

std::vector<std::optional<WandPose>> TriangulateWandPoses(
    const SampleSet& set, const StraightWand& wand, const std::vector<Extrinsics>& poses,
    const std::vector<Intrinsics>& lenses, const std::vector<bool>& use, double reject_px) {
  const int leds = static_cast<int>(wand.offsets.size());
  std::vector<std::optional<WandPose>> out(set.frames.size());
  for (size_t f = 0; f < set.frames.size(); ++f) {
    out[f] = FitWandPose(wand.offsets,
                         TriangulateLeds(set.frames[f], leds, poses, lenses, use, reject_px));
    if (out[f]) out[f]->frame = set.frames[f].number;
  }
  return out;
}

}  // namespace zord
