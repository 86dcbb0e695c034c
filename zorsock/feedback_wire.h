// What the server tells clients about a calibration beside its messages: the
// live coverage of a wand capture (ZOR_CALIB_COVERAGE, in a reply's ints: six
// summary values, six per camera, then the pair matrix) and the figures of the
// last run (ZOR_CALIB_RESULT, in a reply's floats: seven summary values, then
// five per camera), and which cameras may have moved (ZOR_CAMERA_WATCH, in
// floats: the count, then camera id, moved, residual and level per calibrated
// camera), and the calibration of each camera (ZOR_CAMERA_MODELS, in ints:
// the count, then per camera id, calibrated, width, height and twenty doubles,
// each as its low then high 32 bits).
#pragma once

#include <cstdint>
#include <vector>

#include "zorsock/zorsock_feedback.h"

namespace zorsock::wire {

struct CoverageReply {
  ZORCoverageSummary summary{};
  std::vector<ZORCoverage> cameras;
  std::vector<int32_t> shared_frames;  // cameras x cameras, row-major
};

std::vector<int32_t> EncodeCoverage(const CoverageReply& reply);
// False for anything that is not a well-formed coverage reply.
bool DecodeCoverage(const std::vector<int32_t>& ints, CoverageReply* out);

struct ResultReply {
  ZORCalibSummary summary{};
  std::vector<ZORCameraResult> cameras;
};

std::vector<float> EncodeResult(const ResultReply& reply);
bool DecodeResult(const std::vector<float>& floats, ResultReply* out);

std::vector<float> EncodeWatch(const std::vector<ZORCameraWatch>& cameras);
bool DecodeWatch(const std::vector<float>& floats, std::vector<ZORCameraWatch>* out);

std::vector<int32_t> EncodeModels(const std::vector<ZORCameraModel>& cameras);
bool DecodeModels(const std::vector<int32_t>& ints, std::vector<ZORCameraModel>* out);

}  // namespace zorsock::wire
