#include "zord/solver/sample_set.h"

#include <algorithm>
#include <cmath>

#include "zord/solver/capture_tally.h"

namespace zord {

size_t SampleSet::SampleCount() const {
  size_t n = 0;
  for (const SampleFrame& f : frames) n += f.samples.size();
  return n;
}

std::vector<SampleRange> CameraRanges(const SampleFrame& frame, int cameras) {
  std::vector<SampleRange> ranges(cameras, {0, 0});
  const int n = static_cast<int>(frame.samples.size());
  for (int i = 0; i < n;) {
    int j = i;
    while (j < n && frame.samples[j].camera == frame.samples[i].camera) ++j;
    ranges[frame.samples[i].camera] = {i, j};
    i = j;
  }
  return ranges;
}

SampleRange CameraRange(const SampleFrame& frame, int camera) {
  const auto begin = frame.samples.begin(), end = frame.samples.end();
  const auto first = std::partition_point(begin, end, [&](const Sample& s) { return s.camera < camera; });
  const auto last = std::partition_point(first, end, [&](const Sample& s) { return s.camera == camera; });
  return {static_cast<int>(first - begin), static_cast<int>(last - begin)};
}

std::vector<size_t> SelectEvenly(size_t count, int quality) {
  std::vector<size_t> picked;
  const size_t wanted = quality <= 0 ? count : std::min(count, static_cast<size_t>(quality));
  picked.reserve(wanted);
  // The middle of each of `wanted` equal slices of the capture.
  for (size_t i = 0; i < wanted; ++i) picked.push_back((2 * i + 1) * count / (2 * wanted));
  return picked;
}

namespace {

// A frame's detections as samples, sorted, without ambiguous or unknown LEDs.
SampleFrame CleanFrame(const std::vector<Intrinsics>& cameras, const WandFrame& frame,
                       int source, const StraightWand& wand) {
  SampleFrame out;
  out.number = frame.number;
  out.source = source;
  for (size_t k = 0; k < frame.observations.size(); ++k) {
    const WandObservation& o = frame.observations[k];
    const int led = wand.IndexOf(o.led);
    if (led < 0 || !std::isfinite(o.u) || !std::isfinite(o.v)) continue;
    Sample s;
    s.camera = o.camera;
    s.led = led;
    s.pixel = {o.u, o.v};
    s.normalized = PixelToNormalized(cameras[o.camera], s.pixel);
    s.source = static_cast<int>(k);
    out.samples.push_back(s);
  }
  auto key = [](const Sample& s) { return std::pair(s.camera, s.led); };
  std::sort(out.samples.begin(), out.samples.end(),
            [&](const Sample& a, const Sample& b) { return key(a) < key(b); });
  std::vector<Sample> unique;
  for (size_t i = 0; i < out.samples.size();) {
    size_t j = i + 1;
    while (j < out.samples.size() && key(out.samples[j]) == key(out.samples[i])) ++j;
    // A repeated LED is ambiguous: all its detections wait aside.
    auto& to = j == i + 1 ? unique : out.repeated;
    to.insert(to.end(), out.samples.begin() + i, out.samples.begin() + j);
    i = j;
  }
  out.samples = std::move(unique);
  return out;
}

bool Usable(const SampleFrame& frame, size_t leds) {
  std::vector<int> seen_by(leds, 0);
  for (const Sample& s : frame.samples) ++seen_by[s.led];
  return std::count_if(seen_by.begin(), seen_by.end(), [](int n) { return n >= 2; }) >= 2;
}

}  // namespace

bool WandSampleFrame(const std::vector<Intrinsics>& cameras, const WandFrame& frame,
                     const StraightWand& wand, SampleFrame* out) {
  for (const WandObservation& o : frame.observations)
    if (o.camera < 0 || o.camera >= static_cast<int>(cameras.size())) return false;
  *out = CleanFrame(cameras, frame, -1, wand);  // a live frame is in no run yet
  return Usable(*out, wand.ids.size());
}

bool BuildSampleSet(const std::vector<Intrinsics>& cameras, const std::vector<WandFrame>& frames,
                    const StraightWand& wand, int quality, SampleSet* out, std::string* error) {
  const int camera_count = static_cast<int>(cameras.size());
  std::vector<SampleFrame> usable;
  for (size_t f = 0; f < frames.size(); ++f) {
    const WandFrame& frame = frames[f];
    for (const WandObservation& o : frame.observations) {
      if (o.camera < 0 || o.camera >= camera_count) {
        *error = "frame " + std::to_string(frame.number) + " has a detection of camera " +
                 std::to_string(o.camera + 1) + " but there are " + std::to_string(camera_count) +
                 " cameras";
        return false;
      }
    }
    SampleFrame clean = CleanFrame(cameras, frame, static_cast<int>(f), wand);
    if (Usable(clean, wand.ids.size())) usable.push_back(std::move(clean));
  }
  out->cameras = camera_count;
  out->frames.clear();
  for (size_t i : SelectEvenly(usable.size(), quality)) out->frames.push_back(std::move(usable[i]));
  return true;
}

}  // namespace zord
