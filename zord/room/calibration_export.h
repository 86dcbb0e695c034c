// The current calibration for other tools: each camera's model as clients
// get it (ZOR_CAMERA_MODELS) and the file zordctl export writes from the
// engine's "calibration" control reply (calibfile/, docs/calibration.md).
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "zord/room/calibration_store.h"
#include "zorsock/zorsock_feedback.h"

namespace zord {

// Per camera its lens (the nominal one while uncalibrated), image size and
// the rotation and translation (mm) taking world to camera coordinates in
// the world clients see (global transform applied).
std::vector<ZORCameraModel> CameraModels(const CalibrationState& state, const std::vector<Intrinsics>& nominal);

// Writes `calibration` (as calibfile::CalibrationJson makes it) to `path`:
// OpenCV YAML when the name ends in .yaml or .yml, else the JSON; whole or
// not at all.
bool ExportCalibration(const nlohmann::json& calibration, const std::string& path, std::string* error);

}  // namespace zord
