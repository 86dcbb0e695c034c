#include "link/calibration_export.h"

#include <algorithm>
#include <vector>

#include "calibfile/calibration_file.h"
#include "link/save_file.h"
#include "link/zortk.h"
#include "zorsock/zorsock_feedback.h"

namespace {
constexpr int kCamerasAsked = 64;  // asked again with room for all when there are more

std::string NotSent(int code) {
  switch (code) {
    case ZOR_NOT_CONNECTED:
    case ZOR_CONNECTION_LOST:
      return "Not connected: connect to the server to export its calibration.";
    case ZOR_INVALID_ENUM:
      return "This server cannot send its calibration (it is older than this client).";
  }
  return "The server did not send its calibration (error " + ZOR::ErrorText(code, kErrorGeneral, "") + ").";
}
}  // namespace

bool ExportServerCalibration(const std::string& path, std::string* error) {
  std::vector<ZORCameraModel> models(kCamerasAsked);
  int n = zorGetCameraModels(models.data(), kCamerasAsked);
  if (n > kCamerasAsked) {
    models.resize(static_cast<size_t>(n));
    n = zorGetCameraModels(models.data(), n);
  }
  if (n < 0 || static_cast<size_t>(n) > models.size()) {
    *error = NotSent(zorGetError());
    return false;
  }
  models.resize(static_cast<size_t>(n));
  if (std::none_of(models.begin(), models.end(), [](const ZORCameraModel& m) { return m.calibrated; })) {
    *error = "The server has no calibration to export: calibrate the cameras first.";
    return false;
  }
  // The figures are a bonus: a server without them still gives the calibration.
  ZORCalibSummary summary{};
  std::vector<ZORCameraResult> results(models.size());
  const int figures = zorGetCalibResult(&summary, results.data(), n);
  if (figures < 0) summary = ZORCalibSummary{};
  results.resize(static_cast<size_t>(std::clamp(figures, 0, n)));

  std::string text;
  if (!calibfile::CalibrationText(calibfile::CalibrationJson(models, summary, results), path, &text, error))
    return false;
  std::string why;
  if (!SaveFileAtomically(path, text, &why)) {
    *error = "Cannot write " + path + ": " + why;
    return false;
  }
  return true;
}
