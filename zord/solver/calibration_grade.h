// One word for how good a calibration is, from three figures an operator can
// check: the overall reprojection error, the least certain camera position and
// the spread of the measured wand length. The grade is the worst of the three.
#pragma once

#include "zord/solver/solver_result.h"

namespace zord {

enum class CalibrationGrade { kNone = 0, kExcellent = 1, kGood = 2, kFair = 3, kPoor = 4 };

struct GradeLimits {
  double rms_px;
  double position_mm;     // worst camera, one sigma
  double wand_std_mm;
};
// Upper limits of excellent, good and fair; anything above fair is poor.
inline constexpr GradeLimits kGradeLimits[3] = {{0.2, 0.25, 0.3}, {0.35, 0.5, 0.6}, {0.6, 1.0, 1.2}};

// `wand_std_mm`: the spread of the wand length measured with the result (< 0: not measured).
CalibrationGrade GradeCalibration(const CalibrationResult& result, double wand_std_mm);

}  // namespace zord
