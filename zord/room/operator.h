// The virtual operator: moves the scene's objects every frame. By default the
// wand is waved through the capture volume on a smooth path that turns it in
// every direction, and the rigid bodies drift slowly; control requests make
// them rest at an exact pose (no drift), resume, hide single LEDs, or knock
// a camera on its stand.
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
};

}  // namespace zord
