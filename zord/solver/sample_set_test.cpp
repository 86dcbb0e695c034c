#include "zord/solver/sample_set.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "zord/solver/synthetic_capture.h"

namespace zord {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST(SelectEvenly, SpreadsThePickOverTheWholeRange) {
  EXPECT_THAT(SelectEvenly(10, 5), ElementsAre(1, 3, 5, 7, 9));
  const std::vector<size_t> picked = SelectEvenly(2000, 400);
  ASSERT_EQ(picked.size(), 400u);
  for (size_t i = 1; i < picked.size(); ++i) EXPECT_EQ(picked[i] - picked[i - 1], 5u);
  EXPECT_LT(picked.front(), 5u);
  EXPECT_GE(picked.back(), 1995u);
  const std::vector<size_t> uneven = SelectEvenly(1000, 300);
  for (size_t i = 1; i < uneven.size(); ++i)
    EXPECT_THAT(uneven[i] - uneven[i - 1], ::testing::AnyOf(3u, 4u));
  // Zero or too high a quality keeps everything.
  EXPECT_THAT(SelectEvenly(4, 0), ElementsAre(0, 1, 2, 3));
  EXPECT_THAT(SelectEvenly(4, 1200), ElementsAre(0, 1, 2, 3));
  EXPECT_TRUE(SelectEvenly(0, 100).empty());
}

TEST(MakeStraightWand, OffsetsFollowTheAxisFromTheCentroid) {
  StraightWand wand;
  std::string error;
  ASSERT_TRUE(MakeStraightWand(StandardWand(), 1.0, &wand, &error)) << error;
  ASSERT_EQ(wand.ids.size(), 8u);
  EXPECT_NEAR(wand.Length(), 900, 1e-9);
  EXPECT_NEAR(std::abs(wand.offsets[1] - wand.offsets[0]), 85, 1e-9);
  EXPECT_EQ(wand.IndexOf(5), 5);
  EXPECT_EQ(wand.IndexOf(42), -1);
}

TEST(MakeStraightWand, RefusesWandsItCannotUse) {
  StraightWand wand;
  std::string error;
  std::vector<WandLed> leds = StandardWand();
  leds[2].local.z() += 10;
  EXPECT_FALSE(MakeStraightWand(leds, 2.0, &wand, &error));
  EXPECT_THAT(error, HasSubstr("not straight"));

  leds = StandardWand();
  leds[4].id = leds[1].id;
  EXPECT_FALSE(MakeStraightWand(leds, 2.0, &wand, &error));
  EXPECT_THAT(error, HasSubstr("twice"));

  leds = {StandardWand()[0], StandardWand()[1]};
  EXPECT_FALSE(MakeStraightWand(leds, 2.0, &wand, &error));
  EXPECT_THAT(error, HasSubstr("at least 3"));

  leds = StandardWand();
  leds[3].local = leds[2].local;
  EXPECT_FALSE(MakeStraightWand(leds, 2.0, &wand, &error));
  leds[3].local.x() = NAN;
  EXPECT_FALSE(MakeStraightWand(leds, 2.0, &wand, &error));
}

class BuildSampleSetTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(MakeStraightWand(StandardWand(), 1.0, &wand_, &error));
  }
  // A frame in which cameras 0 and 1 both see LEDs 0..count-1.
  static WandFrame Frame(int number, int count) {
    WandFrame f;
    f.number = number;
    for (int c = 0; c < 2; ++c)
      for (int led = 0; led < count; ++led)
        f.observations.push_back({c, led, 100.0 + led, 200.0 + c});
    return f;
  }
  std::vector<Intrinsics> lenses_ = std::vector<Intrinsics>(3);
  StraightWand wand_;
  SampleSet set_;
  std::string error_;
};

TEST_F(BuildSampleSetTest, DropsDetectionsItCannotTrust) {
  WandFrame frame = Frame(7, 4);
  frame.observations.push_back({0, 99, 1, 1});     // no such LED
  frame.observations.push_back({1, 2, NAN, 5});    // not a number: ignored, not ambiguous
  frame.observations.push_back({1, 3, 300, 300});  // camera 1 reports LED 3 twice
  ASSERT_TRUE(BuildSampleSet(lenses_, {frame}, wand_, 0, &set_, &error_)) << error_;
  ASSERT_EQ(set_.frames.size(), 1u);
  EXPECT_EQ(set_.frames[0].number, 7);
  // Camera 0 keeps LEDs 0-3, camera 1 keeps 0-2 (3 is ambiguous).
  ASSERT_EQ(set_.SampleCount(), 7u);
  const auto ranges = CameraRanges(set_.frames[0], 3);
  EXPECT_EQ(ranges[0], SampleRange(0, 4));
  EXPECT_EQ(ranges[1], SampleRange(4, 7));
  EXPECT_EQ(set_.frames[0].samples[6].led, 2);
  ASSERT_EQ(set_.frames[0].repeated.size(), 2u);  // both blobs of LED 3 wait aside
  EXPECT_EQ(set_.frames[0].repeated[0].source + set_.frames[0].repeated[1].source, 7 + 10);
  EXPECT_EQ(ranges[2].first, ranges[2].second);
  const Sample& s = set_.frames[0].samples[1];
  EXPECT_NEAR(s.normalized.x(), (101.0 - 640) / 1200, 1e-12);
}

TEST_F(BuildSampleSetTest, KeepsOnlyFramesTwoCamerasShareTwoLedsOf) {
  WandFrame lonely;
  for (int led = 0; led < 8; ++led) lonely.observations.push_back({0, led, 10.0 * led, 10});
  ASSERT_TRUE(
      BuildSampleSet(lenses_, {Frame(1, 1), lonely, Frame(3, 2)}, wand_, 0, &set_, &error_));
  ASSERT_EQ(set_.frames.size(), 1u);
  EXPECT_EQ(set_.frames[0].number, 3);
}

TEST_F(BuildSampleSetTest, QualityCountsUsableFrames) {
  std::vector<WandFrame> frames;
  for (int i = 0; i < 50; ++i)
    frames.push_back(Frame(i, i % 2 == 0 ? 3 : 1));  // odd frames unusable
  ASSERT_TRUE(BuildSampleSet(lenses_, frames, wand_, 5, &set_, &error_));
  std::vector<int> numbers;
  for (const SampleFrame& f : set_.frames) numbers.push_back(f.number);
  EXPECT_THAT(numbers, ElementsAre(4, 14, 24, 34, 44));
}

TEST_F(BuildSampleSetTest, UnknownCameraIsAnError) {
  WandFrame frame = Frame(12, 3);
  frame.observations.push_back({3, 0, 1, 1});
  EXPECT_FALSE(BuildSampleSet(lenses_, {frame}, wand_, 0, &set_, &error_));
  EXPECT_THAT(error_, HasSubstr("frame 12"));
  frame.observations.back().camera = -1;
  EXPECT_FALSE(BuildSampleSet(lenses_, {frame}, wand_, 0, &set_, &error_));
}

}  // namespace
}  // namespace zord
