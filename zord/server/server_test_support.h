// Test support for the server tests: frames fetched as the desktop client
// fetches them, a running zord, and waiting for a condition.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <thread>
#include <vector>

#include "testing/zord_process.h"
#include "zorsock/frame_assembler.h"
#include "zorsock/zorsock.h"

#include <gtest/gtest.h>

namespace zortest {

// Frames as the desktop client sees them, through the same assembler.
struct FrameFetcher {
  // What was delivered last.
  int32_t lastFrame = 0;
  std::vector<ZORMarker> markers;
  std::vector<ZORRigid> rigids;
  std::vector<ZORImage> images;
  std::vector<ZORDetector> detectors;
  std::vector<ZORCamera> cameras;

  // 1 when a frame was delivered, 0 when none is complete yet.
  int Fetch() { return assembler.Fetch(*this) ? 1 : 0; }

  ZORFrameAssembler assembler;
};

// Polls `condition` until it holds or `seconds` pass.
inline bool WaitFor(const std::function<bool()>& condition, double seconds = 10) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

// Fetches frames as the client does until `enough` holds (false after
// `seconds`), checking that each frame follows the one before; `each` sees
// every delivered frame.
inline bool FetchInOrder(FrameFetcher& f, const std::function<bool()>& enough,
                         const std::function<void()>& each = {}, double seconds = 10) {
  return WaitFor([&] {
    while (true) {
      const int32_t previous = f.lastFrame;
      if (f.Fetch() != 1) break;
      if (previous != 0) {
        EXPECT_EQ(f.lastFrame, previous + 1);
      }
      if (each) each();
    }
    return enough();
  }, seconds);
}

// Waits until the library has seen the server's frame clock move.
inline bool WaitForFrames() {
  return WaitFor([] {
    int frame = 0;
    zorGetIntegerv(ZOR_FRAME_NUMBER, &frame);
    return frame > 0;
  });
}

// The default scene's rigid body (LEDs 8-12, data/body.rb) as rigid tracker 3
// and its alignment frame's LEDs 13-16 as point tracker 4. Positions are sent
// in the caller's units: the file's millimetres times `scale`, with zorScale(scale).
inline void CreateSceneTrackers(float scale) {
  ASSERT_EQ(zorScale(scale), 1);
  ASSERT_EQ(zorTrackeri(3, ZOR_TRACKER_CREATE, ZOR_RIGID_TRACKER), 1);
  std::ifstream body(DataPath("body.rb"));
  std::string line;
  int index = 0;
  while (std::getline(body, line)) {
    int led;
    float p[3];
    if (std::sscanf(line.c_str(), "%d, %f %f %f", &led, &p[0], &p[1], &p[2]) != 4) continue;
    for (float& v : p) v *= scale;
    ASSERT_EQ(zorMarkeriv((3 << 12) | index, ZOR_MARKER_LED, &led), 1);
    ASSERT_EQ(zorMarkerfv((3 << 12) | index, ZOR_MARKER_POSITION, p), 1);
    ++index;
  }
  ASSERT_EQ(index, 5);
  ASSERT_EQ(zorTracker(3, ZOR_ON), 1);
  ASSERT_EQ(zorTrackeri(4, ZOR_TRACKER_CREATE, ZOR_POINT_TRACKER), 1);
  for (int i = 0; i < 4; ++i) {
    const int led = 13 + i;
    ASSERT_EQ(zorMarkeriv((4 << 12) | i, ZOR_MARKER_LED, &led), 1);
  }
  ASSERT_EQ(zorTracker(4, ZOR_ON), 1);
}

// Drains the error queue.
inline std::vector<int> TakeErrors() {
  std::vector<int> errors;
  for (int e = zorGetError(); e != ZOR_NO_ERROR; e = zorGetError()) errors.push_back(e);
  return errors;
}

}  // namespace zortest
