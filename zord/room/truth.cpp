#include "zord/room/truth.h"

#include "zord/room/calibration_store.h"

namespace zord {
namespace {

using nlohmann::json;

json Vec(const Eigen::Vector3d& v) { return {v.x(), v.y(), v.z()}; }

json Pose(const Eigen::Vector3d& p, const Eigen::Quaterniond& q) {
  return {p.x(), p.y(), p.z(), q.w(), q.x(), q.y(), q.z()};
}

json Ids(const std::vector<SceneLed>& leds) {
  json ids = json::array();
  for (const SceneLed& led : leds) ids.push_back(led.id);
  return ids;
}

}  // namespace

json TruthJson(const Scene& scene, const Operator& op) {
  json cameras = json::array();
  for (size_t id = 0; id < scene.cameras.size(); ++id) {
    Eigen::Vector3d position;
    Eigen::Quaterniond rotation;
    ReportedPose(op.CameraPoses()[id], &position, &rotation);
    cameras.push_back({{"id", id}, {"pose", Pose(position, rotation)},
                       {"lens", LensToJson(scene.cameras[id].truth)}});
  }
  std::vector<Eigen::Vector3d> world;
  op.LedWorld(&world);
  json leds = json::array();
  for (int slot = 0; slot < scene.LedCount(); ++slot) {
    leds.push_back({{"id", scene.LedId(slot)}, {"position", Vec(world[slot])},
                    {"visible", op.lit()[slot] != 0}});
  }
  const RigidPlacement wand = op.WandPose();
  json bodies = json::array();
  for (size_t i = 0; i < scene.bodies.size(); ++i) {
    const RigidPlacement& pose = op.BodyPoses()[i];
    bodies.push_back({{"index", i}, {"pose", Pose(pose.position, pose.rotation)},
                      {"leds", Ids(scene.bodies[i].leds)}});
  }
  return {{"ok", true},
          {"cameras", cameras},
          {"leds", leds},
          {"wand",
           {{"pose", Pose(wand.position, wand.rotation)},
            {"direction", Vec(op.WandDirection())},
            {"leds", Ids(scene.wand.leds)}}},
          {"bodies", bodies},
          {"align",
           {{"pose", Pose(scene.align_pose.position, scene.align_pose.rotation)},
            {"leds", Ids(scene.align)}}}};
}

}  // namespace zord
