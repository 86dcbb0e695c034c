// The current calibration for other tools: a documented JSON (the engine's
// "calibration" control reply, docs/calibration.md) and the same as OpenCV
// YAML that cv::FileStorage reads back.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "zord/room/calibration_store.h"

namespace zord {

// Per camera: id, calibrated, image_size [w, h], camera_matrix (3 x 3,
// row-major), distortion [k1, k2, p1, p2], rotation (3 x 3, row-major) and
// translation (mm) taking world to camera coordinates in the world clients see
// (global transform applied), and the figures of the run that made it
// (`result`: a decoded ZOR_CALIB_RESULT reply as JSON, may be null).
nlohmann::json CalibrationJson(const CalibrationState& state, const std::vector<Intrinsics>& nominal,
                               const nlohmann::json& figures);

// Writes `calibration` (as CalibrationJson makes it) to `path`: OpenCV YAML
// when the name ends in .yaml or .yml, else the JSON; whole or not at all.
bool ExportCalibration(const nlohmann::json& calibration, const std::string& path, std::string* error);

}  // namespace zord
