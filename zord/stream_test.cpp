// Streaming from a real zord at its top rate: every frame reaches the client's
// frame assembly, in order and complete, for several seconds.
#include <gtest/gtest.h>

#include "testing/zord_process.h"
#include "zord/server_test_support.h"
#include "zorsock/control.h"

namespace {

using zortest::FrameFetcher;
using zortest::TakeErrors;

TEST(Stream, EveryFrameInOrderAndCompleteAt960Hz) {
  zortest::ZordProcess zord({"--scene", zortest::DataPath("scenes/calibrated.json")});
  ASSERT_TRUE(zord.Start()) << zord.error();
  ASSERT_GE(zorInit(zord.address().c_str(), 0), 0);
  ASSERT_NO_FATAL_FAILURE(zortest::CreateSceneTrackers(1.0f));
  ASSERT_EQ(zorSetFloat(ZOR_FREQUENCY, 960), 1);
  ASSERT_EQ(zorSetInteger(ZOR_STREAMING, ZOR_ON), 1);

  // The client's frame pump: up to 48 frames a tick, a tick every 2 ms.
  FrameFetcher f;
  int32_t first = 0;
  int delivered = 0;
  std::vector<std::string> anomalies;  // the first few, to say what went wrong
  auto report = [&anomalies](const std::string& what) {
    if (anomalies.size() < 10) anomalies.push_back(what);
  };
  const auto start = std::chrono::steady_clock::now();
  while (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(5500)) {
    ASSERT_EQ(zorGetError(), ZOR_NO_ERROR);
    for (int i = 0; i < 48; ++i) {
      const int32_t previous = f.last_frame;
      if (f.Fetch() != 1) break;
      // Frames before the trackers existed have fewer markers; count from the first full one.
      if (first == 0) {
        if (f.markers.size() != 9) continue;
        first = f.last_frame;
      } else if (f.last_frame != previous + 1) {
        report("frame " + std::to_string(f.last_frame) + " after " + std::to_string(previous));
      }
      ++delivered;
      const bool complete = f.markers.size() == 9 && f.rigids.size() == 1 &&
                            f.markers.front().frame == f.last_frame &&
                            f.markers.back().frame == f.last_frame &&
                            f.rigids.front().frame == f.last_frame;
      if (!complete) {
        report("frame " + std::to_string(f.last_frame) + ": " + std::to_string(f.markers.size()) +
               " markers, " + std::to_string(f.rigids.size()) + " rigids");
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  for (const auto& a : anomalies) ADD_FAILURE() << a;
  if (!anomalies.empty()) {
    std::string error;
    ADD_FAILURE() << "server: " << zorControl(zord.address(), R"({"cmd":"clock"})", &error) << error;
  }
  int dropped = -1;
  zorGetIntegerv(ZOR_FRAMES_DROPPED, &dropped);
  EXPECT_EQ(dropped, 0);
  EXPECT_GE(delivered, 5 * 960) << "first " << first << " last " << f.last_frame;
  EXPECT_EQ(f.last_frame, first + delivered - 1);
  EXPECT_TRUE(TakeErrors().empty());
  zorDone();
}

}  // namespace
