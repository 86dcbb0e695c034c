// Raw data against a real zord: a recording that does not fit the
// installation is refused and the server goes on. (A wand calibration runs
// end to end from the client in app/, and inside the engine in
// sim_engine_test.cpp.) Heavy (SERIAL).
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "zord/server/live_test_support.h"
#include "zorsock/rpd_file.h"

namespace {

using nlohmann::json;

class CalibrationLive : public zortest::LiveZordTest {
 protected:
  void StartServer() { StartZord({"--scene", zortest::DataPath("scenes/default.json"), "--frequency", "120"}); }
  zortest::TempDir dir_;
};

TEST_F(CalibrationLive, ARecordingThatDoesNotFitIsRefused) {
  ASSERT_NO_FATAL_FAILURE(StartServer());
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
