#include "calibfile/calibration_file.h"

#include <opencv2/core.hpp>

namespace calibfile {
namespace {

using nlohmann::json;

bool EndsWith(const std::string& s, const std::string& end) {
  return s.size() >= end.size() && s.compare(s.size() - end.size(), end.size(), end) == 0;
}

cv::Mat Matrix(const json& values, int rows, int cols) {
  cv::Mat m(rows, cols, CV_64F);
  for (int i = 0; i < rows * cols; ++i) m.at<double>(i / cols, i % cols) = values.at(i).get<double>();
  return m;
}

std::string Yaml(const json& calibration) {
  cv::FileStorage fs(".yaml", cv::FileStorage::WRITE | cv::FileStorage::MEMORY);
  const json& cameras = calibration.at("cameras");
  fs << "camera_count" << static_cast<int>(cameras.size());
  if (calibration.contains("grade")) fs << "grade" << calibration["grade"].get<std::string>();
  for (const json& cam : cameras) {
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

json CalibrationJson(const std::vector<ZORCameraModel>& cameras, const ZORCalibSummary& summary,
                     const std::vector<ZORCameraResult>& results) {
  const bool figures = summary.run > 0;
  json list = json::array();
  for (size_t c = 0; c < cameras.size(); ++c) {
    const ZORCameraModel& m = cameras[c];
    json cam = {{"id", m.camera},
                {"calibrated", m.calibrated != 0},
                {"image_size", {m.width, m.height}},
                {"camera_matrix", {m.fx, 0.0, m.cx, 0.0, m.fy, m.cy, 0.0, 0.0, 1.0}},
                {"distortion", {m.k1, m.k2, m.p1, m.p2}},
                {"rotation", m.rotation},
                {"translation", m.translation}};
    if (figures && c < results.size()) {
      cam["rms_px"] = results[c].rms_px;
      cam["samples"] = results[c].samples;
      cam["position_sigma_mm"] = results[c].position_mm;
    }
    list.push_back(cam);
  }
  json out = {{"units", "mm"}, {"cameras", list}};
  if (figures) {
    static const char* const kGrades[] = {"none", "excellent", "good", "fair", "poor"};
    const bool known = summary.grade >= ZOR_GRADE_NONE && summary.grade <= ZOR_GRADE_POOR;
    out["grade"] = known ? kGrades[summary.grade] : "unknown";
    out["rms_px"] = summary.rms_px;
    out["wand_length_mm"] = summary.wand_length_mm;
    out["wand_length_std_mm"] = summary.wand_length_std_mm;
  }
  return out;
}

bool CalibrationText(const json& calibration, const std::string& path, std::string* text, std::string* error) {
  try {
    *text = EndsWith(path, ".yaml") || EndsWith(path, ".yml") ? Yaml(calibration) : calibration.dump(2) + "\n";
  } catch (const std::exception& e) {
    *error = std::string("not a calibration: ") + e.what();
    return false;
  }
  return true;
}

}  // namespace calibfile
