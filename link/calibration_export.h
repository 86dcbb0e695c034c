// The server's current calibration written to a file for other tools: every
// camera's lens, distortion, pose and image size, with the figures of the
// last calibration run (calibfile/): OpenCV YAML for a name ending in .yaml
// or .yml, else the documented JSON.
#pragma once

#include <string>

// Asks the connected server for its calibration and writes it to `path`
// atomically. False, with the reason in words, when the server cannot tell,
// has no calibrated camera, or the file cannot be written (an old file is
// then left as it was).
bool ExportServerCalibration(const std::string& path, std::string* error);
