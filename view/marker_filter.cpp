#include "view/marker_filter.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

// Programming-error checks: they end the program naming this file. The text
// and line each one reports are part of the program's diagnostics, fixed
// whatever the layout of this file, so they are given with the check.
#define FILTER_CHECK(condition, text, line) \
  do {                                     \
    if (!(condition)) FilterCheckFailed(text, line); \
  } while (0)

namespace {
[[noreturn]] void FilterCheckFailed(const char* text, int line) {
  std::fprintf(stderr, "filter:%d: assertion failed: %s\n", line, text);
  std::abort();
}
}  // namespace

ZORMarker MarkerFilter::EmptySample() {
  ZORMarker s{};
  s.id = -1;
  s.frame = -1;
  s.cond = -1;
  return s;
}

void MarkerFilter::Configure(float systemFreq, float filterFreq) {
  FILTER_CHECK(systemFreq > 0 && filterFreq > 0, "system_freq > 0 && filter_freq > 0", 16);
  int n = static_cast<int>(systemFreq / filterFreq);
  if (n % 2 == 0) ++n;
  if (n == window_) return;
  window_ = n;
  data_.resize(static_cast<size_t>(n), EmptySample());
}

void MarkerFilter::Reset(float systemFreq, float filterFreq) {
  data_.clear();
  window_ = -1;
  Configure(systemFreq, filterFreq);
  lastValidFrame_ = -1;
}

void MarkerFilter::Push(const ZORMarker& sample) {
  if (data_.empty()) return;  // not configured yet
  data_.pop_front();
  data_.push_back(sample);
  FillGap();
  if (sample.cond > 0) lastValidFrame_ = sample.frame;
}

void MarkerFilter::FillGap() {
  const ZORMarker& now = data_.back();
  if (lastValidFrame_ < 0 || now.cond <= 0) return;
  const int gap = now.frame - lastValidFrame_;
  if (gap < 2 || gap > window_ / 2) return;
  const size_t begin = static_cast<size_t>(window_ - gap - 1);
  FILTER_CHECK(begin < data_.size(), "begin < data.size()", 154);
  const ZORMarker& a = data_[begin];
  double d[3] = {now.x - a.x, now.y - a.y, now.z - a.z};
  const double length = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
  const double step = length / gap;
  if (length > 0) {
    for (double& c : d) c /= length;
  }
  for (int k = 1; begin + k < data_.size() - 1; ++k) {
    ZORMarker& s = data_[begin + k];
    s.x = static_cast<float>(a.x + d[0] * k * step);
    s.y = static_cast<float>(a.y + d[1] * k * step);
    s.z = static_cast<float>(a.z + d[2] * k * step);
    s.flag |= kInterpolated;
  }
}

int MarkerFilter::Output(int mode, ZORMarker& out) const {
  const int half = (window_ - 1) / 2;
  const size_t now = static_cast<size_t>(window_ - half - 1);
  FILTER_CHECK(now < data_.size(), "now < data.size()", 56);
  out = data_[now];
  const int used = mode == kFit ? Fit(out) : Average(out);
  if (used < 1) out.cond = -1;
  return used;
}

int MarkerFilter::Fit(ZORMarker& out) const {
  const int half = (window_ - 1) / 2;
  const size_t now = static_cast<size_t>(window_ - half - 1), begin = now - half, end = now + half;
  FILTER_CHECK(now < data_.size() && begin < data_.size() && end < data_.size(),
               "now < data.size() && begin < data.size() && end < data.size()", 271);
  const ZORMarker& mid = data_[now];
  if (mid.cond <= 0 || !Valid(data_[begin]) || !Valid(data_[end])) return 0;

  // Sums over the valid samples with t = frame - middle frame.
  double st = 0, stt = 0, sv[4] = {0, 0, 0, 0}, stv[4] = {0, 0, 0, 0};
  int n = 0;
  for (size_t i = begin; i <= end; ++i) {
    const ZORMarker& s = data_[i];
    if (!Valid(s)) continue;
    const double t = s.frame - mid.frame;
    const double v[4] = {s.x, s.y, s.z, s.cond};
    ++n;
    st += t;
    stt += t * t;
    for (int k = 0; k < 4; ++k) {
      sv[k] += v[k];
      stv[k] += t * v[k];
    }
  }
  double denominator = n * stt - st * st;
  if (std::fabs(denominator) < 1e-7) denominator = 1;
  double intercept[3];
  for (int k = 0; k < 3; ++k) {
    const double slope = (n * stv[k] - st * sv[k]) / denominator;
    intercept[k] = sv[k] / n - st / n * slope;
  }
  out.x = static_cast<float>(intercept[0]);
  out.y = static_cast<float>(intercept[1]);
  out.z = static_cast<float>(intercept[2]);
  return n;
}

int MarkerFilter::Average(ZORMarker& out) const {
  const int half = (window_ - 1) / 2;
  const size_t now = static_cast<size_t>(window_ - half - 1), begin = now - half, end = now + half;
  FILTER_CHECK(now < data_.size() && begin < data_.size() && end < data_.size(),
               "now < data.size() && begin < data.size() && end < data.size()", 215);
  if (data_[now].cond < 0 || !Valid(data_[begin]) || !Valid(data_[end])) return 0;
  double sum[3] = {0, 0, 0};
  int n = 0;
  for (size_t i = begin; i <= end; ++i) {
    const ZORMarker& s = data_[i];
    if (!Valid(s)) continue;
    sum[0] += s.x, sum[1] += s.y, sum[2] += s.z;
    ++n;
  }
  out.x = static_cast<float>(sum[0] / n);
  out.y = static_cast<float>(sum[1] / n);
  out.z = static_cast<float>(sum[2] / n);
  return n;
}
