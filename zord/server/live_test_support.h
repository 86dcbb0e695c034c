// Test support for the tests that run a real zord process: its control
// channel, and the steps a calibration client takes (a session with the wand
// file as calibration tracker, a capture, a run read message by message).
#pragma once

#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "testing/zord_process.h"
#include "zord/server/server_test_support.h"
#include "zorsock/control.h"

#include <gtest/gtest.h>

namespace zortest {

// The messages of a successful run: "pass N success." and "error E" for each
// of the four passes, the final error below `max_error` pixels.
inline void ExpectPassMessages(const std::vector<std::string>& messages, float max_error) {
  ASSERT_EQ(messages.size(), 8u) << (messages.empty() ? "" : messages.back());
  for (int pass = 1; pass <= 4; ++pass) {
    EXPECT_EQ(messages[2 * pass - 2], "pass " + std::to_string(pass) + " success.");
    float error = -1;
    ASSERT_EQ(std::sscanf(messages[2 * pass - 1].c_str(), "error %f", &error), 1);
    EXPECT_GT(error, 0.0f);
    if (pass == 4) {
      EXPECT_LT(error, max_error);
    }
  }
}

class LiveZordTest : public ::testing::Test {
 protected:
  static constexpr int kWand = 1;

  void TearDown() override {
    zorRPDClose();
    zorDone();
    TakeErrors();
  }

  void StartZord(std::vector<std::string> args) {
    zord_ = std::make_unique<ZordProcess>(std::move(args));
    ASSERT_TRUE(zord_->Start()) << zord_->error();
  }

  nlohmann::json Control(const nlohmann::json& request) {
    std::string error;
    const std::string reply = zorControl(zord_->address(), request.dump(), &error);
    EXPECT_TRUE(error.empty()) << error;
    return nlohmann::json::parse(reply, nullptr, false);
  }

  // Opens a calibration session, blank or keeping the saved calibration, and
  // defines the wand from its file as the calibration tracker.
  void OpenCalibration(int keep_existing) {
    ASSERT_GE(zorInit(zord_->address().c_str(), ZOR_FLAG_CALIBRATE), 0);
    ASSERT_EQ(zorSetInteger(ZOR_CALIB_LOAD_EXISTING, keep_existing), 1);
    ASSERT_EQ(zorTrackeri(kWand, ZOR_TRACKER_CREATE, ZOR_CALIB_TRACKER), 1);
    std::ifstream file(DataPath("wand.rb"));
    int index = 0;
    for (std::string line; std::getline(file, line);) {
      int led;
      float p[3];
      if (std::sscanf(line.c_str(), "%d, %f %f %f", &led, &p[0], &p[1], &p[2]) != 4) continue;
      ASSERT_EQ(zorMarkeriv((kWand << 12) | index, ZOR_MARKER_LED, &led), 1);
      ASSERT_EQ(zorMarkerfv((kWand << 12) | index, ZOR_MARKER_POSITION, p), 1);
      ++index;
    }
    ASSERT_EQ(index, 8);
    ASSERT_EQ(zorTracker(kWand, ZOR_ON), 1);
  }

  // Captures at least `frames` frames of the waving wand; `each` runs while waiting.
  void CaptureWand(int frames, const std::function<void()>& each = [] {}) {
    ASSERT_EQ(zorTracker(kWand, ZOR_CALIB_CAPTURE_START), 1);
    ASSERT_TRUE(WaitFor([&] {
      each();
      return Control({{"cmd", "status"}})["captured_frames"] >= frames;
    }, 60));
    ASSERT_EQ(zorTracker(kWand, ZOR_CALIB_CAPTURE_STOP), 1);
  }

  // Calibration messages until the run ends (pass 4's error line or a failure).
  std::vector<std::string> Calibrate(int quality) {
    std::vector<std::string> messages;
    EXPECT_EQ(zorTrackeri(kWand, ZOR_CALIB_RUN, quality), 1);
    char text[ZOR_STRING_MAX];
    const bool ended = WaitFor([&] {
      while (zorGetString(ZOR_CALIB_MESSAGE, text) > 0) messages.emplace_back(text);
      if (!messages.empty() && messages.back().find("failed") != std::string::npos) return true;
      return messages.size() >= 2 && messages[messages.size() - 2] == "pass 4 success.";
    }, 110);
    EXPECT_TRUE(ended) << messages.size() << " messages";
    return messages;
  }

  // The cameras as the library has them, once all `count` report calibrated.
  std::vector<ZORCamera> CalibratedCameras(size_t count = 8) {
    std::vector<ZORCamera> cameras(64);
    EXPECT_TRUE(WaitFor([&] {
      const int n = zorGetCameras(cameras.data(), 64);
      if (n != static_cast<int>(count)) return false;
      for (int i = 0; i < n; ++i)
        if (cameras[i].cond < 0) return false;
      return true;
    }));
    cameras.resize(count);
    return cameras;
  }

  std::unique_ptr<ZordProcess> zord_;
};

}  // namespace zortest
