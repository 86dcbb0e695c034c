// Test support for the server tests: a copy of the desktop client's frame
// assembly (it asks the library which kinds the current frame has, gathers
// them into a pending frame and delivers it when complete), so the tests see
// frames exactly as the client does.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <thread>
#include <vector>

#include "testing/zord_process.h"
#include "zorsock/zorsock.h"

#include <gtest/gtest.h>

namespace zortest {

class FrameFetcher {
 public:
  enum : uint32_t { kMarkers = 1, kRigids = 2, kImages = 4, kDetectors = 8 };

  struct Pending {
    uint32_t mask = 0;
    int32_t frame = -1;
    std::vector<ZORMarker> markers;
    std::vector<ZORRigid> rigids;
    std::vector<ZORImage> images;
    std::vector<ZORDetector> detectors;
    void Clear() { *this = Pending(); }
    bool Accept(int32_t number, uint32_t bit) {
      if (frame != -1 && frame != number) return false;
      frame = number;
      mask |= bit;
      return true;
    }
  };

  // What was delivered last.
  int32_t last_frame = 0;
  int resets = 0;  // times the server's numbering fell below the last frame
  std::vector<ZORMarker> markers;
  std::vector<ZORRigid> rigids;
  std::vector<ZORImage> images;
  std::vector<ZORDetector> detectors;
  std::vector<ZORCamera> cameras;

  // 1 when a frame was delivered, 0 when none is complete yet.
  int Fetch() {
    Pending next;
    static constexpr struct {
      int code;
      uint32_t bit;
    } kSent[] = {{ZOR_SEND_MARKERS, kMarkers},
                 {ZOR_SEND_RIGIDS, kRigids},
                 {ZOR_SEND_IMAGES, kImages},
                 {ZOR_SEND_DETECTORS, kDetectors}};
    uint32_t available = 0;
    for (const auto& kind : kSent) {
      int value = 0;
      if (zorGetIntegerv(kind.code, &value) > 0 && value != 0) available |= kind.bit;
    }
    int now = -1;
    zorGetIntegerv(ZOR_FRAME_NUMBER, &now);
    if (now < last_frame) {
      ++resets;
      last_frame = now;
      pending_.Clear();
    }
    const uint32_t wanted = available ^ pending_.mask;
    if (wanted & kMarkers) Gather(kMarkers, zorGetMarkers, &Pending::markers, next);
    if (wanted & kRigids) Gather(kRigids, zorGetRigids, &Pending::rigids, next);
    if (wanted & kImages) Gather(kImages, zorGetImages, &Pending::images, next);
    if (wanted & kDetectors) Gather(kDetectors, zorGetDetectors, &Pending::detectors, next);

    if (pending_.frame == -1 && last_frame < now) {  // the server moved on with nothing for us
      pending_.frame = last_frame + 1;
      pending_.mask = available;
    }
    const bool complete = pending_.frame != -1 &&
                          (pending_.mask == available || (pending_.mask != 0 && pending_.frame < now));
    if (!complete) return 0;
    last_frame = pending_.frame;
    markers = std::move(pending_.markers);
    rigids = std::move(pending_.rigids);
    images = std::move(pending_.images);
    detectors = std::move(pending_.detectors);
    cameras.resize(64);
    const int n = zorGetCameras(cameras.data(), 64);
    cameras.resize(n > 0 ? n : 0);
    pending_.Clear();
    pending_.mask = next.mask;
    pending_.frame = next.frame;
    return 1;
  }

 private:
  template <typename Record>
  void Gather(uint32_t bit, int (*get)(Record*, int), std::vector<Record> Pending::*array,
              Pending& next) {
    std::vector<Record> got(16384 / sizeof(Record));
    const int n = get(got.data(), static_cast<int>(got.size()));
    if (n <= 0) return;
    got.resize(n);
    if (pending_.Accept(got[0].frame, bit)) {
      pending_.*array = std::move(got);
    } else {
      next.Accept(got[0].frame, bit);
    }
  }

  Pending pending_;
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
      const int32_t previous = f.last_frame;
      if (f.Fetch() != 1) break;
      if (previous != 0) {
        EXPECT_EQ(f.last_frame, previous + 1);
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
