// A camera rig's calibration as a file for other tools: a documented JSON
// (docs/calibration.md, "Export") and the same as OpenCV YAML that
// cv::FileStorage reads back. zord's export and the client's File menu both
// write through here; each writes the text atomically with its own helper.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "zorsock/zorsock_feedback.h"

namespace calibfile {

// Per camera: id, calibrated, image_size [w, h], camera_matrix (3 x 3,
// row-major), distortion [k1, k2, p1, p2], rotation (3 x 3, row-major) and
// translation (mm) taking world to camera coordinates; when `summary` tells of
// a run (run > 0), its figures: per camera rms_px, samples and
// position_sigma_mm (matched by index), overall grade, rms_px,
// wand_length_mm and wand_length_std_mm.
nlohmann::json CalibrationJson(const std::vector<ZORCameraModel>& cameras, const ZORCalibSummary& summary,
                               const std::vector<ZORCameraResult>& results);

// The text of a calibration file named `path`: OpenCV YAML when the name ends
// in .yaml or .yml, else the JSON. False, with the reason, when `calibration`
// is not one (as CalibrationJson makes it).
bool CalibrationText(const nlohmann::json& calibration, const std::string& path, std::string* text,
                     std::string* error);

}  // namespace calibfile
