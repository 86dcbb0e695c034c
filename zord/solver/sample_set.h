// The solver's working copy of the capture: usable wand frames only, each
// detection tied to a wand LED index and undistorted with the nominal lens.
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "zord/solver/camera_model.h"
#include "zord/solver/wand_data.h"

namespace zord {

struct Sample {
  int camera = 0;
  int led = 0;  // index into StraightWand
  Eigen::Vector2d pixel = Eigen::Vector2d::Zero();
  Eigen::Vector2d normalized = Eigen::Vector2d::Zero();  // undistorted, nominal lens
  int source = -1;  // index of its detection in the input frame
};

struct SampleFrame {
  int32_t number = 0;
  int source = -1;              // index of the frame in the input
  std::vector<Sample> samples;  // sorted by camera, then LED
  // Detections of an LED that one camera reports more than once in the frame
  // (a reflection, or another LED with a misread id): left out of the samples.
  std::vector<Sample> repeated;
};

struct SampleSet {
  int cameras = 0;
  std::vector<SampleFrame> frames;

  size_t SampleCount() const;
};

// Index range [begin, end) of each camera's samples in a frame; empty ranges
// for cameras that do not see the frame.
using SampleRange = std::pair<int, int>;
std::vector<SampleRange> CameraRanges(const SampleFrame& frame, int cameras);
// The range of one camera alone.
SampleRange CameraRange(const SampleFrame& frame, int camera);

// Calls fn(i, j) for each LED that both ranges of `frame` hold, with the two
// samples' indices (both ranges are sorted by LED, so this is a merge).
template <typename Fn>
void ForEachCommonLed(const SampleFrame& frame, SampleRange a, SampleRange b, Fn&& fn) {
  for (int p = a.first, q = b.first; p < a.second && q < b.second;) {
    const int la = frame.samples[p].led, lb = frame.samples[q].led;
    if (la == lb) fn(p, q);
    p += la <= lb;
    q += lb <= la;
  }
}

// Indices of `quality` items spread evenly over `count` (all when quality is 0
// or not below count).
std::vector<size_t> SelectEvenly(size_t count, int quality);

// Keeps the frames in which at least two LEDs are each seen by two cameras,
// then `quality` of those spread evenly. Detections of LEDs the wand does not
// have, non-finite ones, and LEDs a camera reports twice in one frame are
// dropped. Fails only on a camera index outside the camera list.
bool BuildSampleSet(const std::vector<Intrinsics>& cameras, const std::vector<WandFrame>& frames,
                    const StraightWand& wand, int quality, SampleSet* out, std::string* error);

}  // namespace zord
