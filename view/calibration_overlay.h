// What the views show of a calibration beside the cameras' own pictures: in
// the 2D camera view each camera's wand coverage while a capture runs (the
// cells of its image holding samples filled, a camera the solver would not
// take framed in red), in the 3D view the links between cameras that saw the
// wand together (too few shared frames drawn red), and in both the cameras the
// server reports as moved since their calibration. The window fills it from
// the server's calibration feedback; the view only draws it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zorsock/zorsock_feedback.h"

struct CalibrationOverlay {
  bool showCoverage = false;  // the capture's counts are of interest (a capture runs)
  ZORCoverageSummary summary{};
  std::vector<ZORCoverage> coverage;
  std::vector<int> shared;               // coverage.size() squared, row-major
  std::vector<ZORCameraWatch> moved;     // the cameras reported as moved

  const ZORCoverage* CoverageOf(int32_t camera) const;
  const ZORCameraWatch* MovedOf(int32_t camera) const;
  // "Camera K may have moved" for every moved camera, one per line.
  std::vector<std::string> Alerts() const;
};

namespace overlay {

// Over one camera's picture at (sx, sy), sw x sh, y up, in window pixels.
void DrawCell2d(const CalibrationOverlay& o, int32_t camera, float sx, float sy, float sw, float sh);
// In the 3D scene: pair links and moved cameras at the cameras' positions
// times `scale` (scene units per session unit); `marker` sizes the marks.
void DrawScene3d(const CalibrationOverlay& o, const std::vector<ZORCamera>& cameras, float scale,
                 float marker);

}  // namespace overlay
