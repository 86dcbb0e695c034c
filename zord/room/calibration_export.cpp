#include "zord/room/calibration_export.h"

#include <opencv2/core.hpp>

#include <Eigen/Geometry>

namespace zord {
namespace {

bool EndsWith(const std::string& s, const std::string& end) {
  return s.size() >= end.size() && s.compare(s.size() - end.size(), end.size(), end) == 0;
}

cv::Mat Matrix(const nlohmann::json& values, int rows, int cols) {
  cv::Mat m(rows, cols, CV_64F);
  for (int i = 0; i < rows * cols; ++i) m.at<double>(i / cols, i % cols) = values.at(i).get<double>();
  return m;
}

std::string Yaml(const nlohmann::json& calibration) {
  cv::FileStorage fs(".yaml", cv::FileStorage::WRITE | cv::FileStorage::MEMORY);
  const nlohmann::json& cameras = calibration.at("cameras");
  fs << "camera_count" << static_cast<int>(cameras.size());
  if (calibration.contains("grade")) fs << "grade" << calibration["grade"].get<std::string>();
  for (const nlohmann::json& cam : cameras) {
    fs << "camera_" + std::to_string(cam.at("id").get<int>()) << "{";
    fs << "calibrated" << (cam.at("calibrated").get<bool>() ? 1 : 0);
    fs << "image_width" << cam.at("image_size")[0].get<int>();
    fs << "image_height" << cam.at("image_size")[1].get<int>();
    fs << "camera_matrix" << Matrix(cam.at("camera_matrix"), 3, 3);
    fs << "distortion_coefficients" << Matrix(cam.at("distortion"), 1, 4);
    fs << "rotation" << Matrix(cam.at("rotation"), 3, 3);
    fs << "translation" << Matrix(cam.at("translation"), 3, 1);
    for (const char* key : {"rms_px", "position_sigma_mm"})
      if (cam.contains(key)) fs << key << cam[key].get<double>();
    if (cam.contains("samples")) fs << "samples" << cam["samples"].get<int>();
    fs << "}";
  }
  return fs.releaseAndGetString();
}

}  // namespace

nlohmann::json CalibrationJson(const CalibrationState& state, const std::vector<Intrinsics>& nominal,
                               const nlohmann::json& figures) {
  using nlohmann::json;
  json cameras = json::array();
  const Eigen::Matrix3d g = state.global.rotation.toRotationMatrix();
  for (size_t c = 0; c < state.cameras.size(); ++c) {
    const CameraCalibration& cal = state.cameras[c];
    const Intrinsics& k = cal.calibrated ? cal.lens : nominal.at(c);
    // World seen by clients: x' = G x + p, so camera = R G^T (x' - p) + t.
    const Eigen::Matrix3d r = cal.pose.rotation.toRotationMatrix() * g.transpose();
    const Eigen::Vector3d t = cal.pose.translation - r * state.global.position;
    json cam = {{"id", c},
                {"calibrated", cal.calibrated},
                {"image_size", {k.width, k.height}},
                {"camera_matrix", {k.fx, 0.0, k.cx, 0.0, k.fy, k.cy, 0.0, 0.0, 1.0}},
                {"distortion", {k.k1, k.k2, k.p1, k.p2}},
                {"rotation", json::array()},
                {"translation", {t.x(), t.y(), t.z()}}};
    for (int i = 0; i < 9; ++i) cam["rotation"].push_back(r(i / 3, i % 3));
    if (figures.is_object() && c < figures.value("cameras", json::array()).size()) {
      const json& f = figures["cameras"][c];
      cam["rms_px"] = f.at("rms_px");
      cam["samples"] = f.at("samples");
      cam["position_sigma_mm"] = f.at("position_sigma_mm");
    }
    cameras.push_back(cam);
  }
  json out = {{"units", "mm"}, {"cameras", cameras}};
  if (figures.is_object() && figures.contains("grade")) {
    out["grade"] = figures["grade"];
    out["rms_px"] = figures["rms_px"];
    out["wand_length_mm"] = figures["wand_length_mm"];
    out["wand_length_std_mm"] = figures["wand_length_std_mm"];
  }
  return out;
}

bool ExportCalibration(const nlohmann::json& calibration, const std::string& path, std::string* error) {
  std::string contents;
  try {
    contents = EndsWith(path, ".yaml") || EndsWith(path, ".yml") ? Yaml(calibration)
                                                                  : calibration.dump(2) + "\n";
  } catch (const std::exception& e) {
    *error = std::string("not a calibration: ") + e.what();
    return false;
  }
  return WriteFileAtomically(path, contents, error);
}

}  // namespace zord
