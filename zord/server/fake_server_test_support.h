// Test support for the in-process server tests: a real Server on loopback
// over a small scripted engine, driven through the zor* calls.
#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

#include "zord/server/server.h"
#include "zord/server/server_test_support.h"
#include "zorsock/library.h"

#include <gtest/gtest.h>

namespace zord {

// Markers of tracker 1 at (frame, index, 0), one rigid body per frame, and
// images and detectors only when asked; records every request it is given.
class FakeEngine : public Engine {
 public:
  std::atomic<int> markers_per_frame{3};
  std::atomic<int> request_delay_ms{0};
  std::atomic<int> requests{0};
  std::atomic<int> open_sessions{0};

  mutable std::mutex mu;
  std::vector<float> last_marker_floats;
  std::deque<std::string> calib_messages{"pass 1 success."};  // pushed to clients
  std::vector<ZORCamera> cameras{{0, {0, 0, 1000, 1, 0, 0, 0}, 1, 0}, {1, {500, 0, 0, 1, 0, 0, 0}, 1, 0}};

  void Step(int32_t number, double, int64_t time_us, FrameData& out) override {
    out.markers.clear();
    out.rigids.clear();
    out.images.clear();
    out.detectors.clear();
    out.number = number;
    out.time_us = time_us;
    for (int i = 0; i < markers_per_frame; ++i)
      out.markers.push_back({(1 << 12) | i, number, float(number), float(i), 0, 1, 2});
    out.rigids.push_back({2, number, {10, 20, 30, 1, 0, 0, 0}, 1, 3});
    if (out.want_images) out.images.push_back({0, number, 7, 1, 2, 3, 1, 0});
    if (out.want_detectors) out.detectors.push_back({0, number, 1, 640, 480, 500, 100, 30, 0, 0});
  }
  std::vector<ZORCamera> Cameras() const override {
    std::lock_guard lock(mu);
    return cameras;
  }
  void SessionOpened(const ClientContext&) override { ++open_sessions; }
  void SessionClosed(const ClientContext&) override { --open_sessions; }
  int Request() {
    ++requests;
    if (request_delay_ms > 0) std::this_thread::sleep_for(std::chrono::milliseconds(request_delay_ms));
    return ZOR_NO_ERROR;
  }
  int TrackerOp(const ClientContext&, int, int) override { return Request(); }
  int TrackerOpi(const ClientContext&, int, int, int) override { return Request(); }
  int TrackerOpf(const ClientContext&, int, int, float) override { return Request(); }
  int MarkerInts(const ClientContext&, int, int, const std::vector<int32_t>&) override {
    return Request();
  }
  int MarkerFloats(const ClientContext&, int, int, const std::vector<float>& values) override {
    std::lock_guard lock(mu);
    last_marker_floats = values;
    return Request();
  }
  int SetInteger(const ClientContext&, int code, int) override {
    Request();
    return code == ZOR_CALIB_LOAD_EXISTING ? ZOR_NO_ERROR : ZOR_INVALID_ENUM;
  }
  int SetFloats(const ClientContext&, int, const std::vector<float>&) override { return Request(); }
  int GetFloats(const ClientContext&, int code, std::vector<float>& out) override {
    if (code != ZOR_GLOBAL_TRANSFORM) return ZOR_INVALID_ENUM;
    out = {0, 0, 0, 1, 0, 0, 0};
    return ZOR_NO_ERROR;
  }
  int GetInts(const ClientContext&, int, std::vector<int32_t>&) override { return ZOR_INVALID_ENUM; }
  int GetString(const ClientContext&, int code, std::string& out) override {
    if (code != ZOR_CALIB_MESSAGE) return ZOR_INVALID_ENUM;
    std::lock_guard lock(mu);
    out.clear();
    if (!calib_messages.empty()) {
      out = calib_messages.front();
      calib_messages.pop_front();
    }
    return ZOR_NO_ERROR;
  }
  std::string Control(const std::string& request_json) override {
    return nlohmann::json{{"ok", true}, {"engine", nlohmann::json::parse(request_json)}}.dump();
  }
};

class ServerFixture : public ::testing::Test {
 protected:
  // Starts a server on `options_`, on a free port and without discovery.
  void StartServer() {
    options_.port = 0;
    options_.discovery_port = 0;
    server_ = std::make_unique<Server>(engine_, options_);
    std::string error;
    ASSERT_TRUE(server_->Start(&error)) << error;
  }
  void TearDown() override {
    zorDone();
    zortest::TakeErrors();
    zorsock::SetConnectionOptions({});
  }
  std::string Address() const { return "127.0.0.1:" + std::to_string(server_->port()); }

  FakeEngine engine_;
  ServerOptions options_;
  std::unique_ptr<Server> server_;
};

}  // namespace zord
