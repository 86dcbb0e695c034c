#include "zorsock/feedback_wire.h"

#include <bit>
#include <cmath>
#include <algorithm>
#include <array>

namespace zorsock::wire {
namespace {

constexpr size_t kSummaryInts = 6;
constexpr size_t kCameraInts = 6;
constexpr int32_t kMaxCameras = 1024;

int32_t FromFloat(float f) { return std::bit_cast<int32_t>(f); }
float ToFloat(int32_t i) { return std::bit_cast<float>(i); }
int32_t FromBits(uint32_t u) { return std::bit_cast<int32_t>(u); }
uint32_t ToBits(int32_t i) { return std::bit_cast<uint32_t>(i); }

float CoveredFraction(const uint32_t cells[2]) {
  return static_cast<float>(std::popcount(cells[0]) + std::popcount(cells[1])) /
         (ZOR_COVERAGE_GRID * ZOR_COVERAGE_GRID);
}

}  // namespace

std::vector<int32_t> EncodeCoverage(const CoverageReply& reply) {
  const auto n = static_cast<int32_t>(reply.cameras.size());
  std::vector<int32_t> out = {n,
                              reply.summary.frames,
                              reply.summary.min_frames,
                              reply.summary.min_shared_frames,
                              FromFloat(reply.summary.min_spread),
                              ZOR_COVERAGE_GRID};
  for (const ZORCoverage& c : reply.cameras) {
    out.insert(out.end(), {c.frames, c.samples, c.ready, FromBits(c.cells[0]), FromBits(c.cells[1]),
                           FromFloat(c.spread)});
  }
  out.insert(out.end(), reply.shared_frames.begin(), reply.shared_frames.end());
  return out;
}

bool DecodeCoverage(const std::vector<int32_t>& ints, CoverageReply* out) {
  if (ints.size() < kSummaryInts) return false;
  const int32_t n = ints[0];
  if (n < 0 || n > kMaxCameras || ints[5] != ZOR_COVERAGE_GRID) return false;
  const size_t cameras = static_cast<size_t>(n);
  if (ints.size() != kSummaryInts + kCameraInts * cameras + cameras * cameras) return false;
  out->summary = {n, ints[1], ints[2], ints[3], ToFloat(ints[4])};
  if (!std::isfinite(out->summary.min_spread)) return false;
  out->cameras.resize(cameras);
  for (size_t c = 0; c < cameras; ++c) {
    const int32_t* v = ints.data() + kSummaryInts + kCameraInts * c;
    ZORCoverage& cov = out->cameras[c];
    cov.camera = static_cast<int32_t>(c);
    cov.frames = v[0];
    cov.samples = v[1];
    cov.ready = v[2] ? 1 : 0;
    cov.cells[0] = ToBits(v[3]);
    cov.cells[1] = ToBits(v[4]);
    cov.spread = ToFloat(v[5]);
    cov.covered = CoveredFraction(cov.cells);
    if (cov.frames < 0 || cov.samples < 0 || !std::isfinite(cov.spread)) return false;
  }
  out->shared_frames.assign(ints.end() - cameras * cameras, ints.end());
  return true;
}

std::vector<float> EncodeResult(const ResultReply& reply) {
  const ZORCalibSummary& s = reply.summary;
  std::vector<float> out = {static_cast<float>(reply.cameras.size()), static_cast<float>(s.grade),
                            s.rms_px, s.wand_length_mm, s.wand_length_std_mm,
                            static_cast<float>(s.frames), static_cast<float>(s.run)};
  for (const ZORCameraResult& c : reply.cameras) {
    out.insert(out.end(), {static_cast<float>(c.calibrated), static_cast<float>(c.samples), c.rms_px,
                           c.position_mm, c.rotation_deg});
  }
  return out;
}

bool DecodeResult(const std::vector<float>& floats, ResultReply* out) {
  constexpr size_t kSummary = 7, kCamera = 5;
  if (floats.size() < kSummary) return false;
  const float n = floats[0];
  if (!(n >= 0 && n <= kMaxCameras) || n != std::floor(n)) return false;
  const auto cameras = static_cast<size_t>(n);
  if (floats.size() != kSummary + kCamera * cameras) return false;
  const float grade = floats[1];
  if (!(grade >= ZOR_GRADE_NONE && grade <= ZOR_GRADE_POOR) || !std::isfinite(floats[2]) ||
      !std::isfinite(floats[3]) || !std::isfinite(floats[4]) || !(floats[5] >= 0 && floats[5] < 2e9f) ||
      !(floats[6] >= 0 && floats[6] < 2e9f))
    return false;
  out->summary = {static_cast<int32_t>(n), static_cast<int32_t>(grade), floats[2], floats[3], floats[4],
                  static_cast<int32_t>(floats[5]), static_cast<int32_t>(floats[6])};
  out->cameras.resize(cameras);
  for (size_t c = 0; c < cameras; ++c) {
    const float* v = floats.data() + kSummary + kCamera * c;
    if (!(v[1] >= 0 && v[1] < 2e9f) || std::isnan(v[2]) || std::isnan(v[3]) || std::isnan(v[4]))
      return false;
    out->cameras[c] = {static_cast<int32_t>(c), v[0] != 0 ? 1 : 0, static_cast<int32_t>(v[1]), v[2], v[3],
                       v[4]};
  }
  return true;
}

std::vector<float> EncodeWatch(const std::vector<ZORCameraWatch>& cameras) {
  std::vector<float> out = {static_cast<float>(cameras.size())};
  for (const ZORCameraWatch& c : cameras)
    out.insert(out.end(), {static_cast<float>(c.camera), static_cast<float>(c.moved), c.residual_px,
                           c.level_px});
  return out;
}

bool DecodeWatch(const std::vector<float>& floats, std::vector<ZORCameraWatch>* out) {
  if (floats.empty()) return false;
  const float n = floats[0];
  if (!(n >= 0 && n <= kMaxCameras) || n != std::floor(n)) return false;
  const auto cameras = static_cast<size_t>(n);
  if (floats.size() != 1 + 4 * cameras) return false;
  out->resize(cameras);
  for (size_t c = 0; c < cameras; ++c) {
    const float* v = floats.data() + 1 + 4 * c;
    if (!(v[0] >= 0 && v[0] <= kMaxCameras) || !std::isfinite(v[2]) || !std::isfinite(v[3]))
      return false;
    (*out)[c] = {static_cast<int32_t>(v[0]), v[1] != 0 ? 1 : 0, v[2], v[3]};
  }
  return true;
}

namespace {
constexpr size_t kModelDoubles = 20;  // fx .. p2, rotation, translation
constexpr size_t kModelInts = 4 + 2 * kModelDoubles;

using ModelValues = std::array<double, kModelDoubles>;

ModelValues Values(const ZORCameraModel& m) {
  ModelValues v = {m.fx, m.fy, m.cx, m.cy, m.k1, m.k2, m.p1, m.p2};
  std::copy_n(m.rotation, 9, v.begin() + 8);
  std::copy_n(m.translation, 3, v.begin() + 17);
  return v;
}

void SetValues(const ModelValues& v, ZORCameraModel& m) {
  m.fx = v[0], m.fy = v[1], m.cx = v[2], m.cy = v[3];
  m.k1 = v[4], m.k2 = v[5], m.p1 = v[6], m.p2 = v[7];
  std::copy_n(v.begin() + 8, 9, m.rotation);
  std::copy_n(v.begin() + 17, 3, m.translation);
}
}  // namespace

std::vector<int32_t> EncodeModels(const std::vector<ZORCameraModel>& cameras) {
  std::vector<int32_t> out = {static_cast<int32_t>(cameras.size())};
  for (const ZORCameraModel& m : cameras) {
    out.insert(out.end(), {m.camera, m.calibrated, m.width, m.height});
    for (double value : Values(m)) {
      const auto bits = std::bit_cast<uint64_t>(value);
      out.insert(out.end(), {FromBits(static_cast<uint32_t>(bits)), FromBits(static_cast<uint32_t>(bits >> 32))});
    }
  }
  return out;
}

bool DecodeModels(const std::vector<int32_t>& ints, std::vector<ZORCameraModel>* out) {
  if (ints.empty() || ints[0] < 0 || ints[0] > kMaxCameras) return false;
  const size_t n = static_cast<size_t>(ints[0]);
  if (ints.size() != 1 + kModelInts * n) return false;
  out->assign(n, ZORCameraModel{});
  for (size_t c = 0; c < n; ++c) {
    const int32_t* v = ints.data() + 1 + kModelInts * c;
    ZORCameraModel& m = (*out)[c];
    m.camera = v[0];
    m.calibrated = v[1] ? 1 : 0;
    m.width = v[2];
    m.height = v[3];
    if (m.width <= 0 || m.height <= 0) return false;
    ModelValues values;
    for (size_t i = 0; i < kModelDoubles; ++i) {
      const uint64_t bits = ToBits(v[4 + 2 * i]) | static_cast<uint64_t>(ToBits(v[5 + 2 * i])) << 32;
      values[i] = std::bit_cast<double>(bits);
      if (!std::isfinite(values[i])) return false;
    }
    SetValues(values, m);
  }
  return true;
}

}  // namespace zorsock::wire
