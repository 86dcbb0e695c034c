#include "zord/solver/calib_state.h"

#include <algorithm>
#include <limits>

#include "zord/solver/triangulation.h"

namespace zord {

void CalibState::TrustAll(const SampleSet& set) {
  inlier.assign(set.frames.size(), {});
  for (size_t f = 0; f < set.frames.size(); ++f)
    inlier[f].assign(set.frames[f].samples.size(), true);
}

std::vector<std::vector<double>> SampleErrors(const SampleSet& set, const StraightWand& wand,
                                              const CalibState& state) {
  constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
  std::vector<std::vector<double>> out(set.frames.size());
  for (size_t f = 0; f < set.frames.size(); ++f) {
    const SampleFrame& frame = set.frames[f];
    out[f].assign(frame.samples.size(), kNone);
    if (!state.wand[f]) continue;
    for (size_t i = 0; i < frame.samples.size(); ++i) {
      const Sample& s = frame.samples[i];
      if (!state.use[s.camera]) continue;
      out[f][i] =
          ReprojectionErrorPx(state.lenses[s.camera], state.poses[s.camera],
                              WandLedPosition(*state.wand[f], wand.offsets[s.led]), s.pixel);
    }
  }
  return out;
}

ErrorSum InlierError(const std::vector<std::vector<double>>& errors, const SampleSet& set,
                     const CalibState& state, std::vector<ErrorSum>* per_camera) {
  ErrorSum total;
  if (per_camera) per_camera->assign(set.cameras, ErrorSum{});
  for (size_t f = 0; f < errors.size(); ++f) {
    for (size_t i = 0; i < errors[f].size(); ++i) {
      const double e = errors[f][i];
      if (std::isnan(e) || !state.inlier[f][i]) continue;
      total.squared += e * e;
      total.residuals += 2;
      if (per_camera) {
        ErrorSum& camera = (*per_camera)[set.frames[f].samples[i].camera];
        camera.squared += e * e;
        camera.residuals += 2;
      }
    }
  }
  return total;
}

int MarkInliers(const std::vector<std::vector<double>>& errors, double threshold_px,
                CalibState* state) {
  int outliers = 0;
  for (size_t f = 0; f < errors.size(); ++f) {
    for (size_t i = 0; i < errors[f].size(); ++i) {
      const double e = errors[f][i];
      const bool keep = !std::isnan(e) && e <= threshold_px;
      state->inlier[f][i] = keep;
      outliers += !std::isnan(e) && !keep;
    }
  }
  return outliers;
}

int ResolveRepeated(const StraightWand& wand, double threshold_px, SampleSet* set,
                    CalibState* state) {
  auto key = [](const Sample& s) { return std::pair(s.camera, s.led); };
  int taken = 0;
  for (size_t f = 0; f < set->frames.size(); ++f) {
    SampleFrame& frame = set->frames[f];
    if (frame.repeated.empty() || !state->wand[f]) continue;
    std::vector<Sample> aside;
    for (size_t i = 0; i < frame.repeated.size();) {
      size_t j = i + 1;
      while (j < frame.repeated.size() && key(frame.repeated[j]) == key(frame.repeated[i])) ++j;
      const Sample& first = frame.repeated[i];
      int fits = 0;
      size_t fit = i;
      if (state->use[first.camera]) {
        const Eigen::Vector3d led = WandLedPosition(*state->wand[f], wand.offsets[first.led]);
        for (size_t k = i; k < j; ++k) {
          const Sample& s = frame.repeated[k];
          if (ReprojectionErrorPx(state->lenses[s.camera], state->poses[s.camera], led, s.pixel) <=
              threshold_px) {
            ++fits;
            fit = k;
          }
        }
      }
      for (size_t k = i; k < j; ++k) {
        const Sample& s = frame.repeated[k];
        if (fits != 1 || k != fit) {
          aside.push_back(s);
          continue;
        }
        const auto at = std::lower_bound(
            frame.samples.begin(), frame.samples.end(), s,
            [&](const Sample& a, const Sample& b) { return key(a) < key(b); });
        state->inlier[f].insert(state->inlier[f].begin() + (at - frame.samples.begin()), true);
        frame.samples.insert(at, s);
        ++taken;
      }
      i = j;
    }
    frame.repeated = std::move(aside);
  }
  return taken;
}

bool AnyCameraFrameAbove(const std::vector<std::vector<double>>& errors, const SampleSet& set,
                         const CalibState& state, double knee_px) {
  for (size_t f = 0; f < errors.size(); ++f) {
    for (const SampleRange& range : CameraRanges(set.frames[f], set.cameras)) {
      double squared = 0;
      int count = 0;
      for (int i = range.first; i < range.second; ++i) {
        if (std::isnan(errors[f][i]) || !state.inlier[f][i]) continue;
        squared += errors[f][i] * errors[f][i];
        ++count;
      }
      if (squared > knee_px * knee_px * count) return true;
    }
  }
  return false;
}

double RobustSigma(const std::vector<std::vector<double>>& errors) {
  std::vector<double> all;
  for (const auto& frame : errors)
    for (double e : frame)
      if (!std::isnan(e)) all.push_back(e);
  if (all.empty()) return 0;
  auto middle = all.begin() + static_cast<long>(all.size() / 2);
  std::nth_element(all.begin(), middle, all.end());
  // The 2D error of Gaussian noise is Rayleigh distributed: median = 1.1774 sigma.
  return *middle / 1.1774;
}

}  // namespace zord
