// Processes killed (SIGKILL) at random moments while they write files. zord
// saving the calibration, 100 times: the state file is always the last
// confirmed save or the one in progress, never broken, the next start loads
// it, and no temporary file is left beside it. A client recording raw data: the file it leaves is read or
// refused with the reason, never a crash. Heavy (SERIAL).
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <thread>

#include "zord/room/calibration_store.h"
#include "zord/server/live_test_support.h"
#include "zorsock/rpd_file.h"

namespace {

class CalibrationKill : public zortest::LiveZordTest {};

TEST_F(CalibrationKill, ASaveCutByAKillLeavesTheOldOrTheNewState) {
  StartZord({"--scene", zortest::DataPath("scenes/calibrated.json")});
  std::mt19937 random(15);
  int attempted = 0, confirmed = 0;
  ASSERT_GE(zorInit(zord_->address().c_str(), ZOR_FLAG_CALIBRATE), 0);
  ASSERT_EQ(zorSetInteger(ZOR_CALIB_LOAD_EXISTING, 1), 1);
  ASSERT_EQ(zorSetInteger(ZOR_CALIB_SAVE, 1), 1);  // the file exists from here on
  zorDone();
  for (int run = 0; run < 100; ++run) {
    SCOPED_TRACE("run " + std::to_string(run));
    ASSERT_EQ(Control({{"cmd", "status"}})["calibrated_cameras"], 8) << zord_->output();
    ASSERT_GE(zorInit(zord_->address().c_str(), ZOR_FLAG_CALIBRATE), 0);
    ASSERT_EQ(zorSetInteger(ZOR_CALIB_LOAD_EXISTING, 1), 1);
    std::thread killer([&, delay = std::uniform_int_distribution<int>(0, 40)(random)] {
      std::this_thread::sleep_for(std::chrono::milliseconds(delay));
      zord_->Kill();
    });
    // Each save holds a new global transform: x = its number.
    for (;;) {
      const float pose[7] = {static_cast<float>(attempted + 1), 0, 0, 1, 0, 0, 0};
      if (zorSetFloatv(ZOR_GLOBAL_TRANSFORM, pose) != 1) break;
      ++attempted;
      if (zorSetInteger(ZOR_CALIB_SAVE, 1) != 1) break;
      confirmed = attempted;
    }
    killer.join();
    zorDone();
    zortest::TakeErrors();

    zord::CalibrationState state;
    std::string error;
    ASSERT_EQ(zord::LoadCalibration(zord_->state_file(), 8, &state, &error), zord::LoadStatus::kLoaded)
        << error;
    const double saved = state.global.position.x();
    EXPECT_TRUE(saved >= confirmed && saved <= attempted)
        << saved << " not in " << confirmed << ".." << attempted;
    ASSERT_TRUE(zord_->Start()) << zord_->error();
  }
  EXPECT_GT(confirmed, 100);  // the kills really fell among saves
  // Nor do the cut saves leave temporary files beside the state.
  const std::filesystem::path state(zord_->state_file());
  for (const auto& entry : std::filesystem::directory_iterator(state.parent_path()))
    EXPECT_NE(entry.path().filename().string().rfind("." + state.filename().string(), 0), 0u)
        << entry.path();
}

TEST_F(CalibrationKill, ARecordingCutByAKillIsReadOrRefusedWithTheReason) {
  StartZord({"--scene", zortest::DataPath("scenes/default.json")});
  zortest::TempDir dir;
  std::mt19937 random(15);
  int read = 0;
  for (int run = 0; run < 20; ++run) {
    const std::string file = dir.File("cut" + std::to_string(run) + ".rpd");
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      if (zorRPDOpen(zord_->address().c_str(), file.c_str(), 1) != 1) _exit(1);
      for (;;) zorRPDRecv();
    }
    std::this_thread::sleep_for(
        std::chrono::milliseconds(std::uniform_int_distribution<int>(50, 600)(random)));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    std::vector<uint8_t> bytes;
    zorsock::rpd::Recording recording;
    std::string why;
    if (!zorsock::rpd::ReadWholeFile(file, &bytes, &why)) continue;  // killed before creating it
    if (zorsock::rpd::ParseRecording(bytes, &recording, &why)) {
      ++read;
    } else {  // a kill cuts the file short; it never garbles it
      EXPECT_TRUE(why.find("truncated") != std::string::npos ||
                  why.find("no frames") != std::string::npos) << why;
    }
  }
  std::printf("%d of 20 cut recordings read whole\n", read);
}

}  // namespace
