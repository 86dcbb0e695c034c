// Places the calibrated installation in a world frame a viewer can use: the
// wand data fixes everything but where the world is.
#pragma once

#include <Eigen/Geometry>

#include "zord/solver/calib_state.h"

namespace zord {

// Y up = the cameras' mean image-up direction (cameras stand upright), origin =
// centroid of the wand centres, and the first camera in use looks along -Z
// seen from above (its optical axis projected on the floor plane; its image
// x axis when it looks straight down). Returns the rigid map old -> new world.
Eigen::Isometry3d ChooseWorldFrame(const CalibState& state, WorldFrame* frame);

// Re-expresses camera and wand poses in the new world: X_new = to_new * X_old.
void MoveWorld(const Eigen::Isometry3d& to_new, CalibState* state);

}  // namespace zord
