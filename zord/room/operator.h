// The virtual operator: moves the scene's objects every frame. By default the
// wand is waved through the capture volume on a smooth path that turns it in
// every direction, and the rigid bodies drift slowly; control requests make
// them rest at an exact pose (no drift), resume, hide single LEDs, or knock
// a camera on its stand. In follow mode the wand plays along with what the
// clients do instead (operator_follow.cpp).
#pragma once

#include <cstdint>
#include <vector>

#include <Eigen/Core>
#include <nlohmann/json.hpp>

#include "zord/room/scene.h"

namespace zord {

class Operator {
 public:
  explicit Operator(const Scene& scene);

  // What the clients are doing, as the follow mode needs it.
  struct Cues {
    bool capturing = false;  // a wand capture for calibration runs
    int align_point = -1;    // wand alignment point wanted: 0..2, 3 all taken, -1 none
  };
  // Follow mode: the wand rests at the volume centre, is waved while a capture
  // runs and is carried to the alignment frame's corner, X arm and Z arm in
  // turn as the alignment asks for them. A wand or body request ends it.
  void SetFollow(bool on);
  bool following() const { return following_; }
  void SetCues(const Cues& cues) { cues_ = cues; }
  // Where the wand rests for alignment point k: the frame's corner, the end
  // of its X arm, the end of its Z arm (empty without an alignment frame).
  const std::vector<Eigen::Vector3d>& AlignSpots() const { return align_spots_; }

  // Moves the waving wand and moving bodies on by `dt` seconds.
  void Advance(double dt);

  // World position (mm) of every LED, indexed by the scene's LED slot.
  void LedWorld(std::vector<Eigen::Vector3d>* world) const;
  // 1 for lit LEDs, 0 for hidden ones, by slot.
  const std::vector<uint8_t>& lit() const { return lit_; }

  // Object poses now: local to world.
  RigidPlacement WandPose() const;
  Eigen::Vector3d WandDirection() const { return wand_direction_; }
  const std::vector<RigidPlacement>& BodyPoses() const { return body_poses_; }

  // Handles {"cmd": "wand" | "body" | "led", ...} (docs/simulator.md). Returns
  // the reply object; throws std::runtime_error with the reason for a bad request.
  nlohmann::json Handle(const nlohmann::json& request);
  nlohmann::json Status() const;

  // The cameras' true poses (world to camera), bumped ones included, and a
  // count that changes whenever one is bumped.
  const std::vector<Extrinsics>& CameraPoses() const { return camera_poses_; }
  int CamerasMoved() const { return cameras_moved_; }

 private:
  nlohmann::json Bump(const nlohmann::json& request);
  void UpdateWand();
  void WavePose(double t, Eigen::Vector3d* position, Eigen::Vector3d* direction) const;
  void Follow();
  void FindAlignSpots();
  void UpdateBody(size_t index);

  const Scene& scene_;
  double time_ = 0;
  bool wand_waving_;
  Eigen::Vector3d wand_position_;
  Eigen::Vector3d wand_direction_;
  std::vector<uint8_t> body_moving_;
  std::vector<RigidPlacement> body_poses_;
  std::vector<uint8_t> lit_;
  std::vector<Extrinsics> camera_poses_;
  int cameras_moved_ = 0;

  // Follow mode: the goal the wand is on its way to (a kGoal* value or an
  // alignment spot's index) and where the way began.
  static constexpr int kNoGoal = -3, kGoalCentre = -2, kGoalWave = -1;
  bool following_ = false;
  Cues cues_;
  std::vector<Eigen::Vector3d> align_spots_;
  int goal_ = kNoGoal;
  double goal_since_ = 0;
  Eigen::Vector3d from_position_ = Eigen::Vector3d::Zero();
  Eigen::Vector3d from_direction_ = Eigen::Vector3d::UnitX();
};

}  // namespace zord
