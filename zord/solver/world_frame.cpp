#include "zord/solver/world_frame.h"

#include <algorithm>
#include <cmath>

namespace zord {

Eigen::Isometry3d ChooseWorldFrame(const CalibState& state, WorldFrame* frame) {
  // Image up is the camera's -y axis; in the world it is R^T (0, -1, 0).
  Eigen::Vector3d up = Eigen::Vector3d::Zero();
  int heading = -1;
  for (size_t c = 0; c < state.poses.size(); ++c) {
    if (!state.use[c]) continue;
    up += state.poses[c].rotation.conjugate() * Eigen::Vector3d(0, -1, 0);
    if (heading < 0) heading = static_cast<int>(c);
  }
  if (heading < 0 || up.norm() < 1e-9) up = Eigen::Vector3d::UnitY();
  up.normalize();

  Eigen::Vector3d centre = Eigen::Vector3d::Zero();
  int frames = 0;
  for (const auto& w : state.wand) {
    if (!w) continue;
    centre += w->centre;
    ++frames;
  }
  if (frames > 0) centre /= frames;

  // New -Z: the heading camera's view direction flattened onto the floor plane.
  Eigen::Vector3d forward = Eigen::Vector3d::UnitZ();
  if (heading >= 0) {
    const Eigen::Quaterniond to_world = state.poses[heading].rotation.conjugate();
    forward = to_world * Eigen::Vector3d::UnitZ();
    forward -= forward.dot(up) * up;
    if (forward.norm() < 1e-3) {  // looking straight down: use its image x as new +X
      const Eigen::Vector3d x = to_world * Eigen::Vector3d::UnitX();
      forward = up.cross(x - x.dot(up) * up);
    }
  }
  if (forward.norm() < 1e-9) forward = up.unitOrthogonal();
  const Eigen::Vector3d z = -forward.normalized();
  const Eigen::Vector3d x = up.cross(z).normalized();

  Eigen::Matrix3d axes;  // rows: the new axes in old coordinates
  axes.row(0) = x.transpose();
  axes.row(1) = up.transpose();
  axes.row(2) = x.cross(up).transpose();
  Eigen::Isometry3d to_new = Eigen::Isometry3d::Identity();
  to_new.linear() = axes;
  to_new.translation() = -(axes * centre);

  double sum_sq = 0;
  int n = 0;
  for (size_t c = 0; c < state.poses.size(); ++c) {
    if (!state.use[c]) continue;
    const Eigen::Vector3d camera_up =
        state.poses[c].rotation.conjugate() * Eigen::Vector3d(0, -1, 0);
    const double angle = std::acos(std::clamp(camera_up.dot(up), -1.0, 1.0));
    sum_sq += angle * angle;
    ++n;
  }
  frame->heading_camera = heading;
  frame->up_spread_deg = n > 0 ? std::sqrt(sum_sq / n) * 180 / M_PI : 0;
  return to_new;
}

void MoveWorld(const Eigen::Isometry3d& to_new, CalibState* state) {
  const Eigen::Quaterniond q(to_new.linear());
  const Eigen::Vector3d b = to_new.translation();
  // X_cam = R X_old + t = R q^-1 (X_new - b) + t
  for (Extrinsics& e : state->poses) {
    e.rotation = (e.rotation * q.conjugate()).normalized();
    e.translation = e.translation - e.rotation * b;
  }
  for (auto& w : state->wand) {
    if (!w) continue;
    w->centre = to_new * w->centre;
    w->direction = q * w->direction;
  }
}

}  // namespace zord
