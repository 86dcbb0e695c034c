// The operator's follow mode: instead of a fixed motion, the wand does what a
// person calibrating the room would do with it at each moment of the
// client's work, so that the whole calibration and alignment can be run
// without anyone driving the simulation.
#include <algorithm>
#include <cmath>

#include "zord/room/operator.h"

namespace zord {
namespace {

// Seconds the operator takes to carry the wand from one place to the next.
constexpr double kWalkSeconds = 1.5;

}  // namespace

void Operator::SetFollow(bool on) {
  following_ = on;
  goal_ = kNoGoal;  // set out afresh from wherever the wand is
}

// The corner is the frame's LED nearest its own origin; the arms' ends are the
// LEDs farthest along its +X and its +Z.
void Operator::FindAlignSpots() {
  align_spots_.clear();
  if (scene_.align.size() < 3) return;
  const auto by = [](auto key) {
    return [key](const SceneLed& a, const SceneLed& b) { return key(a) < key(b); };
  };
  const SceneLed& corner = *std::min_element(scene_.align.begin(), scene_.align.end(),
                                             by([](const SceneLed& l) { return l.local.norm(); }));
  const SceneLed& on_x = *std::max_element(scene_.align.begin(), scene_.align.end(),
                                           by([](const SceneLed& l) { return l.local.x(); }));
  const SceneLed& on_z = *std::max_element(scene_.align.begin(), scene_.align.end(),
                                           by([](const SceneLed& l) { return l.local.z(); }));
  for (const SceneLed* led : {&corner, &on_x, &on_z}) {
    align_spots_.push_back(scene_.align_pose.rotation * led->local + scene_.align_pose.position);
  }
}

// Waves while a capture runs; otherwise rests the wand at the alignment spot
// wanted or, with nothing to do, at the volume centre where cameras are aimed.
// A new goal is reached smoothly over kWalkSeconds; a resting wand is exact.
void Operator::Follow() {
  int goal = kGoalCentre;
  if (cues_.capturing) {
    goal = kGoalWave;
  } else if (cues_.align_point >= 0 && cues_.align_point < static_cast<int>(align_spots_.size())) {
    goal = cues_.align_point;
  }
  if (goal != goal_) {
    goal_ = goal;
    goal_since_ = time_;
    from_position_ = wand_position_;
    from_direction_ = wand_direction_;
  }
  wand_waving_ = goal == kGoalWave;
  Eigen::Vector3d position, direction;
  if (wand_waving_) {
    WavePose(time_, &position, &direction);
  } else {
    position = goal == kGoalCentre ? scene_.volume_centre : align_spots_[goal];
    direction = scene_.wand.rest_direction.normalized();
  }
  const double s = std::clamp((time_ - goal_since_) / kWalkSeconds, 0.0, 1.0);
  if (s >= 1) {
    wand_position_ = position;
    wand_direction_ = direction;
    return;
  }
  const double eased = s * s * (3 - 2 * s);
  wand_position_ = from_position_ + eased * (position - from_position_);
  const Eigen::Vector3d turned = from_direction_ + eased * (direction - from_direction_);
  // Opposite directions pass through zero halfway: take the goal's at once.
  wand_direction_ = turned.norm() > 1e-3 ? turned.normalized() : direction;
}

}  // namespace zord
