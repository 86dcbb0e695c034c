// What the solver is given: the captured 2D wand detections and the wand's
// geometry. Pixels are the cameras' raw image coordinates; lengths are mm.
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <string>
#include <vector>

namespace zord {

// One LED of the wand seen by one camera in one frame.
struct WandObservation {
  int camera = 0;  // index into the camera list
  int led = 0;     // LED id as in the wand's tracker definition
  double u = 0, v = 0;
};

struct WandFrame {
  int32_t number = 0;
  std::vector<WandObservation> observations;
};

// One LED of the wand in the wand's own frame (from its tracker file).
struct WandLed {
  int id = 0;
  Eigen::Vector3d local = Eigen::Vector3d::Zero();
};

// A straight wand reduced to what the solver needs: each LED's signed offset
// (mm) along the wand's axis from the LEDs' centroid.
struct StraightWand {
  std::vector<int> ids;
  std::vector<double> offsets;

  int IndexOf(int id) const;  // -1 when the wand has no LED with that id
  double Length() const;      // distance between the two outermost LEDs
};

// Fits a line through the LEDs. Fails (false, `error` says why) when there are
// fewer than three LEDs, ids repeat, LEDs coincide or the wand is not straight
// within `tolerance_mm`.
bool MakeStraightWand(const std::vector<WandLed>& leds, double tolerance_mm, StraightWand* wand,
                      std::string* error);

}  // namespace zord
