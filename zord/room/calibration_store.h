// The server's camera calibration (per camera: calibrated or not, lens, pose)
// and the global transform, and their state file. Saving is atomic: a crash
// at any moment leaves either the old or the new file.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "zord/room/sim_pose.h"
#include "zord/solver/camera_model.h"

namespace zord {

struct CameraCalibration {
  bool calibrated = false;
  Intrinsics lens;
  Extrinsics pose;  // world to camera
};

struct CalibrationState {
  std::vector<CameraCalibration> cameras;  // by camera id
  RigidPlacement global;  // the global transform, applied to everything reported
};

enum class LoadStatus { kLoaded, kMissing, kCorrupt };

// Reads a state file written by SaveCalibration for a scene of `camera_count`
// cameras (cameras the file does not list stay uncalibrated). kCorrupt comes
// with a message naming the file and what is wrong; `state` is untouched
// unless kLoaded.
LoadStatus LoadCalibration(const std::string& path, size_t camera_count, CalibrationState* state,
                           std::string* error);
// The same from a file's text; false with the reason (without a file name).
bool ParseCalibration(const std::string& text, size_t camera_count, CalibrationState* state,
                      std::string* error);
bool SaveCalibration(const std::string& path, const CalibrationState& state, std::string* error);

nlohmann::json CalibrationToJson(const CalibrationState& state);
nlohmann::json LensToJson(const Intrinsics& lens);

// Writes `contents` to a temporary file in the same folder, syncs it, renames
// it over `path` and syncs the folder.
bool WriteFileAtomically(const std::string& path, const std::string& contents, std::string* error);
// Removes the temporary files of `path` that a process killed between naming
// its temporary and renaming it left behind (".<name>.NNNNNN" beside it). For
// the one process that writes `path`, before its first write.
void RemoveLeftoverTemporaries(const std::string& path);

}  // namespace zord
