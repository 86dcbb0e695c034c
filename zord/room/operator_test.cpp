#include "zord/room/operator.h"

#include <gtest/gtest.h>

#include <cmath>

#include "zord/room/sim_testing.h"

namespace zord {
namespace {

using nlohmann::json;

TEST(Operator, RestingIsExactAndStaysPut) {
  const Scene scene = testing::DefaultScene();
  Operator op(scene);
  op.Handle({{"cmd", "wand"}, {"mode", "rest"}, {"position", {100, 800, -300}}, {"direction", {0, 0, 2}}});
  op.Handle({{"cmd", "body"}, {"mode", "rest"}, {"position", {1, 2, 3}}, {"rotation", {0, 1, 0, 0}}});
  std::vector<Eigen::Vector3d> first, later;
  op.Advance(0.01);
  op.LedWorld(&first);
  for (int i = 0; i < 500; ++i) op.Advance(0.01);
  op.LedWorld(&later);
  EXPECT_EQ(first, later);  // bit for bit
  for (const SceneLed& led : scene.wand.leds) {
    EXPECT_EQ(later[scene.SlotOf(led.id)], Eigen::Vector3d(100, 800, -300 + led.local.x()));
  }
  // Body rotated half a turn about X: (x, y, z) -> (x, -y, -z), then moved.
  const SceneLed& led = scene.bodies[0].leds[3];
  EXPECT_TRUE(later[scene.SlotOf(led.id)].isApprox(
      Eigen::Vector3d(1 + led.local.x(), 2 - led.local.y(), 3 - led.local.z())));
  EXPECT_TRUE((op.WandPose().rotation * Eigen::Vector3d::UnitX()).isApprox(Eigen::Vector3d::UnitZ()));
}

TEST(Operator, WavingCoversTheVolumeAndTurnsTheWand) {
  const Scene scene = testing::DefaultScene();
  Operator op(scene);
  Eigen::Vector3d lo = Eigen::Vector3d::Constant(1e9), hi = -lo;
  double min_up = 1, max_up = -1;
  int octants = 0;
  for (int i = 0; i < 120 * 100; ++i) {  // two minutes at 100 Hz
    op.Advance(0.01);
    const Eigen::Vector3d p = op.WandPose().position;
    lo = lo.cwiseMin(p);
    hi = hi.cwiseMax(p);
    const Eigen::Vector3d d = op.WandDirection();
    min_up = std::min(min_up, d.y());
    max_up = std::max(max_up, d.y());
    octants |= 1 << ((d.x() > 0) + 2 * (d.z() > 0));
    // The whole wand stays above the floor.
    EXPECT_GT(p.y() - 450 * std::abs(d.y()), 0);
  }
  const Eigen::Vector3d extent = hi - lo;
  for (int k = 0; k < 3; ++k) EXPECT_GT(extent[k], 0.9 * scene.volume_size[k]) << k;
  EXPECT_LT(min_up, -0.7);
  EXPECT_GT(max_up, 0.7);
  EXPECT_EQ(octants, 15);  // pointing in every horizontal quadrant
}

// Follow mode: rests at the volume centre, waves while capturing, walks to
// the alignment spot asked for and rests there exactly; told what to do with
// the wand, it stops following.
TEST(Operator, FollowsTheClientsWork) {
  const Scene scene = testing::DefaultScene();
  Operator op(scene);
  EXPECT_EQ(op.Handle({{"cmd", "follow"}, {"on", true}})["follow"], true);
  const auto run = [&](double seconds) {
    for (int i = 0; i < seconds * 100; ++i) op.Advance(0.01);
  };
  run(2);
  EXPECT_EQ(op.WandPose().position, scene.volume_centre);
  EXPECT_EQ(op.Status()["wand"], "rest");

  op.SetCues({true, -1});
  run(3);
  const Eigen::Vector3d waving = op.WandPose().position;
  run(0.5);
  EXPECT_GT((op.WandPose().position - waving).norm(), 50);

  const auto led = [&](int id) {
    for (const SceneLed& l : scene.align)
      if (l.id == id) return Eigen::Vector3d(scene.align_pose.rotation * l.local + scene.align_pose.position);
    return Eigen::Vector3d(Eigen::Vector3d::Constant(NAN));
  };
  const int spots[3] = {13, 15, 16};  // the frame's corner, X arm end, Z arm end
  for (int k = 0; k < 3; ++k) {
    op.SetCues({false, k});
    run(0.5);
    EXPECT_GT((op.WandPose().position - led(spots[k])).norm(), 50) << k;  // still on the way
    run(1.5);  // the walk takes 1.5 s
    EXPECT_EQ(op.WandPose().position, led(spots[k])) << k;
  }
  op.SetCues({false, 3});
  run(2);
  EXPECT_EQ(op.WandPose().position, scene.volume_centre);

  op.Handle({{"cmd", "wand"}, {"mode", "wave"}});
  EXPECT_FALSE(op.following());
  op.SetCues({false, 0});
  run(2);
  EXPECT_NE(op.WandPose().position, led(spots[0]));
}

TEST(Operator, HidesLedsAndRejectsBadRequests) {
  const Scene scene = testing::DefaultScene();
  Operator op(scene);
  const json reply = op.Handle({{"cmd", "led"}, {"id", 9}, {"visible", false}});
  EXPECT_EQ(reply["visible"], false);
  EXPECT_EQ(op.lit()[scene.SlotOf(9)], 0);
  EXPECT_EQ(op.Status()["hidden_leds"], json::array({9}));

  const json bad[] = {
      {{"cmd", "wand"}},
      {{"cmd", "wand"}, {"mode", "fly"}},
      {{"cmd", "wand"}, {"mode", "rest"}, {"position", {1, 2}}, {"direction", {1, 0, 0}}},
      {{"cmd", "wand"}, {"mode", "rest"}, {"position", {1, 2, 3}}, {"direction", {0, 0, 0}}},
      {{"cmd", "body"}, {"index", 4}, {"mode", "move"}},
      {{"cmd", "body"}, {"mode", "rest"}, {"position", {1, 2, 3}}, {"rotation", {0, 0, 0, 0}}},
      {{"cmd", "led"}, {"id", 999}, {"visible", true}},
      {{"cmd", "led"}, {"id", 3}},
      {{"cmd", "jump"}},
      {{"cmd", "follow"}, {"on", 1}},
  };
  for (const json& request : bad) {
    EXPECT_THROW(op.Handle(request), std::exception) << request.dump();
  }
}

}  // namespace
}  // namespace zord
