#include "zord/solver/wand_lengths.h"

#include <algorithm>
#include <cmath>

#include "zord/solver/triangulation.h"

namespace zord {

WandLengths MeasureWandLengths(const SampleSet& set, const StraightWand& wand,
                               const std::vector<Extrinsics>& poses,
                               const std::vector<Intrinsics>& lenses, const std::vector<bool>& use,
                               double reject_px) {
  const auto [low, high] = std::minmax_element(wand.offsets.begin(), wand.offsets.end());
  const long first = low - wand.offsets.begin(), last = high - wand.offsets.begin();
  std::vector<double> lengths;
  SampleFrame frame;
  for (const SampleFrame& captured : set.frames) {
    frame = captured;
    for (Sample& s : frame.samples) s.normalized = PixelToNormalized(lenses[s.camera], s.pixel);
    const auto leds =
        TriangulateLeds(frame, static_cast<int>(wand.offsets.size()), poses, lenses, use, reject_px);
    if (leds[first] && leds[last]) lengths.push_back((*leds[last] - *leds[first]).norm());
  }
  WandLengths out;
  out.frames = static_cast<int>(lengths.size());
  if (lengths.size() < 2) return out;
  double sum = 0, sum_sq = 0;
  for (double l : lengths) sum += l;
  out.mean_mm = sum / static_cast<double>(lengths.size());
  for (double l : lengths) sum_sq += (l - out.mean_mm) * (l - out.mean_mm);
  out.std_mm = std::sqrt(sum_sq / static_cast<double>(lengths.size() - 1));
  return out;
}

}  // namespace zord
