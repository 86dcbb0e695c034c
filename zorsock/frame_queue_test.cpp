// The client's queue of whole frames, handed out kind by kind.
#include "zorsock/frame_queue.h"

#include <gtest/gtest.h>

namespace zorsock {
namespace {

wire::Frame MakeFrame(int number, int markers, int rigids) {
  wire::Frame f;
  f.number = number;
  f.time_us = number * 1000;
  for (int i = 0; i < markers; ++i) f.markers.push_back({i, number, float(i), 0, 0, 1, 1});
  for (int i = 0; i < rigids; ++i) f.rigids.push_back({i, number, {0, 0, 0, 1, 0, 0, 0}, 1, 3});
  return f;
}

TEST(FrameQueue, HeadKindsAreHandedOutOnceThenTheHeadMovesOn) {
  FrameQueue q;
  q.Push(MakeFrame(1, 2, 1));
  q.Push(MakeFrame(2, 2, 1));
  EXPECT_TRUE(q.HeadHas(Kind::kMarkers));
  EXPECT_TRUE(q.HeadHas(Kind::kRigids));
  EXPECT_FALSE(q.HeadHas(Kind::kImages));

  ZORMarker m[8];
  ZORRigid r[8];
  ASSERT_EQ(q.Take(Kind::kMarkers, m, 8), 2);
  EXPECT_EQ(m[0].frame, 1);
  EXPECT_FALSE(q.HeadHas(Kind::kMarkers));  // taken, and frame 1 is still the head
  EXPECT_EQ(q.Take(Kind::kMarkers, m, 8), 0);
  ASSERT_EQ(q.Take(Kind::kRigids, r, 8), 1);
  EXPECT_EQ(r[0].frame, 1);
  // Frame 1 is done: frame 2 is the head.
  EXPECT_TRUE(q.HeadHas(Kind::kMarkers));
  ASSERT_EQ(q.Take(Kind::kRigids, r, 8), 1);
  EXPECT_EQ(r[0].frame, 2);
  ASSERT_EQ(q.Take(Kind::kMarkers, m, 8), 2);
  EXPECT_EQ(m[1].frame, 2);
  EXPECT_EQ(q.size(), 0u);
}

TEST(FrameQueue, TakingWithoutAskingCopiesUpToTheCapacityAndTakesTheKind) {
  FrameQueue q;
  ZORMarker m[2];
  EXPECT_EQ(q.Take(Kind::kMarkers, m, 2), 0);  // nothing queued
  EXPECT_EQ(q.Take(Kind::kDetectors, m, 2), 0);
  q.Push(MakeFrame(1, 5, 0));
  EXPECT_EQ(q.Take(Kind::kMarkers, m, 2), 2);
  EXPECT_EQ(q.size(), 0u);
}

TEST(FrameQueue, EmptyFramesAreNotQueuedButAdvanceTheNumber) {
  FrameQueue q;
  q.Push(MakeFrame(1, 1, 0));
  q.Push(MakeFrame(2, 0, 0));
  q.Push(MakeFrame(3, 0, 0));
  EXPECT_EQ(q.newest(), 3);
  EXPECT_EQ(q.size(), 1u);
  EXPECT_EQ(q.head_time_us(), 1000);  // the head's clock, not the newest
  ZORMarker m[1];
  q.Take(Kind::kMarkers, m, 1);
  EXPECT_EQ(q.head_time_us(), 3000);  // nothing queued: the newest presented
}

TEST(FrameQueue, FullQueueDropsOldestAndCountsButRestartedNumberingDiscardsTheOld) {
  FrameQueue q(3);
  for (int n = 1; n <= 5; ++n) q.Push(MakeFrame(n, 1, 0));
  EXPECT_EQ(q.dropped(), 2);
  ZORMarker m[1];
  q.Take(Kind::kMarkers, m, 1);
  EXPECT_EQ(m[0].frame, 3);

  FrameQueue r;
  for (int n = 100; n < 104; ++n) r.Push(MakeFrame(n, 1, 0));
  r.Push(MakeFrame(1, 1, 0));
  EXPECT_EQ(r.newest(), 1);
  EXPECT_EQ(r.size(), 1u);
  EXPECT_EQ(r.dropped(), 0);
  r.Take(Kind::kMarkers, m, 1);
  EXPECT_EQ(m[0].frame, 1);
}

// Capacity 1 with the head partly taken popped an empty deque; the count of
// frames alone let 2048 large frames pile up.
TEST(FrameQueue, AStartedHeadIsKeptAndTheBoundIsInBytesToo) {
  FrameQueue tiny(1);
  tiny.Push(MakeFrame(1, 1, 1));
  ZORMarker m[8];
  ASSERT_EQ(tiny.Take(Kind::kMarkers, m, 8), 1);
  tiny.Push(MakeFrame(2, 1, 1));
  tiny.Push(MakeFrame(3, 1, 1));
  EXPECT_EQ(tiny.size(), 2u);
  EXPECT_EQ(tiny.dropped(), 1);
  ZORRigid r[1];
  ASSERT_EQ(tiny.Take(Kind::kRigids, r, 1), 1);
  EXPECT_EQ(r[0].frame, 1);  // the started head is finished first

  FrameQueue small(100, 3 * 4 * sizeof(ZORMarker));
  for (int n = 1; n <= 10; ++n) small.Push(MakeFrame(n, 4, 0));
  EXPECT_EQ(small.size(), 3u);
  EXPECT_EQ(small.dropped(), 7);
  ASSERT_EQ(small.Take(Kind::kMarkers, m, 8), 4);
  EXPECT_EQ(m[0].frame, 8);
}

TEST(FrameQueue, AFrameArrivingMidRoundWaitsForTheNextRound) {
  FrameQueue q;
  q.Push(MakeFrame(1, 1, 1));
  ZORMarker m[4];
  ZORRigid r[4];
  // A round finds frame 1 and takes it.
  ASSERT_TRUE(q.HeadHas(Kind::kMarkers));
  ASSERT_TRUE(q.HeadHas(Kind::kRigids));
  EXPECT_EQ(q.newest(), 1);
  q.Take(Kind::kMarkers, m, 4);
  q.Take(Kind::kRigids, r, 4);

  // The next round asks about markers while nothing is there; frame 2 comes
  // in before it asks about rigids. The round must not see half of frame 2.
  EXPECT_FALSE(q.HeadHas(Kind::kMarkers));
  q.Push(MakeFrame(2, 1, 1));
  EXPECT_FALSE(q.HeadHas(Kind::kRigids));
  EXPECT_EQ(q.newest(), 1);

  // The round after sees all of it.
  EXPECT_TRUE(q.HeadHas(Kind::kMarkers));
  EXPECT_TRUE(q.HeadHas(Kind::kRigids));
  EXPECT_EQ(q.newest(), 2);
}

}  // namespace
}  // namespace zorsock
