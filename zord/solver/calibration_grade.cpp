#include "zord/solver/calibration_grade.h"

#include <algorithm>

namespace zord {

CalibrationGrade GradeCalibration(const CalibrationResult& result, double wand_std_mm) {
  if (result.status != SolveStatus::kSuccess) return CalibrationGrade::kNone;
  double worst_position = 0;
  for (size_t c = 0; c < result.uncertainty.size(); ++c)
    if (result.calibrated[c]) worst_position = std::max(worst_position, result.uncertainty[c].position_mm);
  // An unmeasured wand length does not lower the grade.
  const double wand = std::max(0.0, wand_std_mm);
  for (int g = 0; g < 3; ++g) {
    const GradeLimits& l = kGradeLimits[g];
    if (result.rms_px <= l.rms_px && worst_position <= l.position_mm && wand <= l.wand_std_mm)
      return static_cast<CalibrationGrade>(g + 1);
  }
  return CalibrationGrade::kPoor;
}

}  // namespace zord
