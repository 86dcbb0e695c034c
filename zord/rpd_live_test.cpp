// Raw data through the client library against a real zord: a wand capture is
// recorded while it is calibrated, the recording is sent back and replayed as
// the server's camera input, and calibrating the replay gives the same
// cameras. Recordings that do not fit the installation are refused. SERIAL.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "zord/live_test_support.h"
#include "zorsock/rpd_file.h"

namespace {

using nlohmann::json;
using zortest::WaitFor;

class RpdLive : public zortest::LiveZordTest {
 protected:
  void SetUp() override {
    StartZord({"--scene", zortest::DataPath("scenes/default.json"), "--frequency", "120"});
  }
  // Runs a calibration at `quality`; its final error line.
  std::string FinalError(int quality) {
    const std::vector<std::string> messages = Calibrate(quality);
    EXPECT_EQ(messages.size(), 8u) << (messages.empty() ? "" : messages.back());
    return messages.size() == 8 ? messages.back() : "";
  }
  zortest::TempDir dir_;
};

TEST_F(RpdLive, ARecordedCaptureCalibratesAgainToTheSameResult) {
  const std::string file = dir_.File("capture.rpd");
  ASSERT_NO_FATAL_FAILURE(OpenCalibration(0));
  // Sending needs the session closed.
  EXPECT_EQ(zorRPDOpen(zord_->address().c_str(), file.c_str(), 2), ZOR_RPD_WRONG_STATE);

  // Record while capturing, draining as the client's frame pump does.
  ASSERT_EQ(zorRPDOpen(zord_->address().c_str(), file.c_str(), 1), 1) << zorRPDError();
  EXPECT_EQ(zorRPDOpen(zord_->address().c_str(), file.c_str(), 1), ZOR_RPD_WRONG_STATE);
  int64_t written = 0;
  auto drain = [&] {
    for (int n; (n = zorRPDRecv()) > 0;) written += n;
  };
  ASSERT_NO_FATAL_FAILURE(CaptureWand(400, drain));
  WaitFor([&] { drain(); return false; }, 0.3);
  ASSERT_GE(zorRPDRecv(), 0) << zorRPDError();
  ASSERT_EQ(zorRPDClose(), 0) << zorRPDError();
  const int captured = Control({{"cmd", "status"}})["captured_frames"];

  const std::string first_error = FinalError(400);
  ASSERT_FALSE(first_error.empty());
  const std::vector<ZORCamera> first = CalibratedCameras();

  // The file holds every frame, those of the capture marked.
  std::vector<uint8_t> bytes;
  zorsock::rpd::Recording recording;
  std::string why;
  ASSERT_TRUE(zorsock::rpd::ReadWholeFile(file, &bytes, &why)) << why;
  EXPECT_GT(written, static_cast<int64_t>(bytes.size()) / 2);
  ASSERT_TRUE(zorsock::rpd::ParseRecording(bytes, &recording, &why)) << why;
  ASSERT_EQ(recording.header.cameras.size(), 8u);
  int marked = 0;
  for (const auto& r : recording.frames) {
    const auto frame = zorsock::wire::DecodeRawFrame(bytes.data() + r.offset, r.size, 8);
    ASSERT_TRUE(frame);
    marked += (frame->flags & zorsock::wire::kRawFrameCapturing) != 0;
  }
  EXPECT_GE(marked, captured);

  // Send it back; the server replays it as its camera input.
  zorDone();
  ASSERT_EQ(zorRPDOpen(zord_->address().c_str(), file.c_str(), 2), 1) << zorRPDError();
  ASSERT_EQ(zorRPDSend(), 1);
  ASSERT_EQ(zorRPDClose(), 0) << zorRPDError();
  const json replay = Control({{"cmd", "replay"}})["replay"];
  ASSERT_TRUE(replay.is_object());
  EXPECT_EQ(replay["frames"], recording.frames.size());

  // Capture the replay until every marked frame went by, and calibrate again.
  ASSERT_NO_FATAL_FAILURE(OpenCalibration(0));
  ASSERT_EQ(zorTracker(kWand, ZOR_CALIB_CAPTURE_START), 1);
  ASSERT_TRUE(WaitFor([&] { return Control({{"cmd", "replay"}})["replay"]["taken"] >= marked; }, 60));
  ASSERT_EQ(zorTracker(kWand, ZOR_CALIB_CAPTURE_STOP), 1);
  EXPECT_EQ(Control({{"cmd", "status"}})["captured_frames"], captured);

  const std::string second_error = FinalError(400);
  float e1 = 0, e2 = 0;
  ASSERT_EQ(std::sscanf(first_error.c_str(), "error %f", &e1), 1);
  ASSERT_EQ(std::sscanf(second_error.c_str(), "error %f", &e2), 1);
  EXPECT_NEAR(e2, e1, 1e-4 * e1);
  const std::vector<ZORCamera> second = CalibratedCameras();
  for (size_t i = 0; i < 8; ++i) {
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(second[i].pose[k], first[i].pose[k], 0.01) << i;
    for (int k = 3; k < 7; ++k) EXPECT_NEAR(second[i].pose[k], first[i].pose[k], 1e-5) << i;
  }
}

TEST_F(RpdLive, ARecordingThatDoesNotFitIsRefused) {
  // Three cameras where the installation has eight.
  std::vector<uint8_t> bytes = zorsock::rpd::EncodeFileHeader({{{1280, 1024}, {1280, 1024}, {1280, 1024}}, "x"});
  const zorsock::wire::Bytes message = zorsock::wire::EncodeRawFrame({1, 0, 0, {{0, 1, 0, 5, 5, 2, 1, 0}}});
  const auto size = static_cast<uint32_t>(message.size() - zorsock::wire::kHeaderSize);
  bytes.insert(bytes.end(), reinterpret_cast<const uint8_t*>(&size), reinterpret_cast<const uint8_t*>(&size) + 4);
  bytes.insert(bytes.end(), message.begin() + zorsock::wire::kHeaderSize, message.end());
  const std::string file = dir_.File("three.rpd");
  std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                              static_cast<std::streamsize>(bytes.size()));

  ASSERT_EQ(zorRPDOpen(zord_->address().c_str(), file.c_str(), 2), 1) << zorRPDError();
  ASSERT_EQ(zorRPDSend(), 1);
  EXPECT_EQ(zorRPDClose(), ZOR_RPD_REFUSED);
  EXPECT_NE(std::string(zorRPDError()).find("3 cameras"), std::string::npos) << zorRPDError();
  EXPECT_TRUE(Control({{"cmd", "replay"}})["replay"].is_null());
  // The server goes on as before.
  EXPECT_EQ(Control({{"cmd", "status"}})["ok"], true);
}

}  // namespace
