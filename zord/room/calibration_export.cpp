#include "zord/room/calibration_export.h"

#include <Eigen/Geometry>

#include "calibfile/calibration_file.h"

namespace zord {

std::vector<ZORCameraModel> CameraModels(const CalibrationState& state, const std::vector<Intrinsics>& nominal) {
  std::vector<ZORCameraModel> models;
  const Eigen::Matrix3d g = state.global.rotation.toRotationMatrix();
  for (size_t c = 0; c < state.cameras.size(); ++c) {
    const CameraCalibration& cal = state.cameras[c];
    const Intrinsics& k = cal.calibrated ? cal.lens : nominal.at(c);
    // World seen by clients: x' = G x + p, so camera = R G^T (x' - p) + t.
    const Eigen::Matrix3d r = cal.pose.rotation.toRotationMatrix() * g.transpose();
    const Eigen::Vector3d t = cal.pose.translation - r * state.global.position;
    ZORCameraModel m{static_cast<int32_t>(c), cal.calibrated ? 1 : 0, k.width, k.height,
                     k.fx, k.fy, k.cx, k.cy, k.k1, k.k2, k.p1, k.p2, {}, {t.x(), t.y(), t.z()}};
    for (int i = 0; i < 9; ++i) m.rotation[i] = r(i / 3, i % 3);
    models.push_back(m);
  }
  return models;
}

bool ExportCalibration(const nlohmann::json& calibration, const std::string& path, std::string* error) {
  std::string contents;
  return calibfile::CalibrationText(calibration, path, &contents, error) &&
         WriteFileAtomically(path, contents, error);
}

}  // namespace zord
