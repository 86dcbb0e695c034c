#include "zord/room/trackers.h"

#include <gtest/gtest.h>

#include "zorsock/zorsock.h"

namespace zord {
namespace {

TEST(TrackerTable, RequestsCheckIdsTypesAndExistence) {
  TrackerTable t;
  EXPECT_EQ(t.Create(0, ZOR_POINT_TRACKER), ZOR_NO_ERROR);
  EXPECT_EQ(t.Create(5, 0x999), ZOR_INVALID_ENUM);
  EXPECT_EQ(t.Create(-1, ZOR_RIGID_TRACKER), ZOR_INVALID_VALUE);
  EXPECT_EQ(t.Create(kMaxTrackerId + 1, ZOR_RIGID_TRACKER), ZOR_INVALID_VALUE);
  EXPECT_EQ(t.Create(kMaxTrackerId, ZOR_CALIB_TRACKER), ZOR_NO_ERROR);

  EXPECT_EQ(t.Enable(3, true), ZOR_INVALID_OPERATION);
  EXPECT_EQ(t.Destroy(3), ZOR_INVALID_OPERATION);
  EXPECT_EQ(t.SetOption(3, 1, 2.0f), ZOR_INVALID_OPERATION);
  EXPECT_EQ(t.AssignLed((3 << 12) | 1, {4}), ZOR_INVALID_OPERATION);
  EXPECT_EQ(t.SetPosition((3 << 12) | 1, {1, 2, 3}), ZOR_INVALID_OPERATION);

  EXPECT_EQ(t.AssignLed(-5, {4}), ZOR_INVALID_VALUE);
  EXPECT_EQ(t.AssignLed(0, {}), ZOR_INVALID_VALUE);
  EXPECT_EQ(t.AssignLed(0, {-2}), ZOR_INVALID_VALUE);
  EXPECT_EQ(t.SetPosition(0, {1, 2}), ZOR_INVALID_VALUE);
  EXPECT_EQ(t.SetPosition(0, {1, NAN, 2}), ZOR_INVALID_VALUE);
  EXPECT_EQ(t.SetOption(0, 1, INFINITY), ZOR_INVALID_VALUE);

  EXPECT_EQ(t.AssignLed(7, {9}), ZOR_NO_ERROR);
  EXPECT_EQ(t.SetOption(0, 4, 1.0f), ZOR_NO_ERROR);
  EXPECT_EQ(t.SetOption(0, 4, 2.0f), ZOR_NO_ERROR);
  ASSERT_EQ(t.Find(0)->options.size(), 1u);
  EXPECT_EQ(t.Find(0)->options[0].second, 2.0f);

  // Re-creating replaces the tracker; destroying removes it.
  EXPECT_EQ(t.Create(0, ZOR_RIGID_TRACKER), ZOR_NO_ERROR);
  EXPECT_EQ(t.Find(0)->type, ZOR_RIGID_TRACKER);
  EXPECT_TRUE(t.Find(0)->markers.empty());
  EXPECT_FALSE(t.Find(0)->enabled);
  EXPECT_EQ(t.Destroy(0), ZOR_NO_ERROR);
  EXPECT_EQ(t.Find(0), nullptr);
}

TEST(TrackerTable, PlanListsEnabledTrackersOnly) {
  TrackerTable t;
  const uint64_t v0 = t.version();
  ASSERT_EQ(t.Create(0, ZOR_POINT_TRACKER), ZOR_NO_ERROR);
  ASSERT_EQ(t.Create(2, ZOR_RIGID_TRACKER), ZOR_NO_ERROR);
  ASSERT_EQ(t.Create(1, ZOR_CALIB_TRACKER), ZOR_NO_ERROR);
  EXPECT_NE(t.version(), v0);
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(t.AssignLed(i, {i}), ZOR_NO_ERROR);              // tracker 0: LEDs 0..2
    ASSERT_EQ(t.AssignLed((2 << 12) | i, {i + 1}), ZOR_NO_ERROR);  // tracker 2: LEDs 1..3
    ASSERT_EQ(t.SetPosition((2 << 12) | i, {10.0f * i, 0, 0}), ZOR_NO_ERROR);
    ASSERT_EQ(t.AssignLed((1 << 12) | i, {i + 5}), ZOR_NO_ERROR);
  }
  ASSERT_EQ(t.AssignLed((2 << 12) | 3, {99}), ZOR_NO_ERROR);  // an LED the scene lacks
  const auto slot_of = [](int led) { return led < 10 ? led + 100 : -1; };

  TrackerPlan plan = t.Plan(slot_of);
  EXPECT_TRUE(plan.markers.empty());
  EXPECT_EQ(plan.calibration_slots, (std::vector<int>{105, 106, 107}));  // captured even when disabled

  ASSERT_EQ(t.Enable(0, true), ZOR_NO_ERROR);
  ASSERT_EQ(t.Enable(2, true), ZOR_NO_ERROR);
  plan = t.Plan(slot_of);
  ASSERT_EQ(plan.markers.size(), 7u);
  EXPECT_EQ(plan.markers[0].wire_id, 0);
  EXPECT_EQ(plan.markers[3].wire_id, 2 << 12);
  EXPECT_EQ(plan.markers[3].slot, 101);
  EXPECT_EQ(plan.markers[6].slot, -1);
  EXPECT_EQ(plan.wanted_slots, (std::vector<int>{100, 101, 102, 103}));  // each LED once
  ASSERT_EQ(plan.rigids.size(), 1u);
  EXPECT_EQ(plan.rigids[0].id, 2);
  EXPECT_EQ(plan.rigids[0].count, 3);
  EXPECT_EQ(plan.max_rigid_points, 3);
  EXPECT_EQ(plan.rigid_points[2].local, Eigen::Vector3d(20, 0, 0));
}

}  // namespace
}  // namespace zord
