#include "zord/room/calibration_store.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "testing/zord_process.h"
#include "zord/room/sim_testing.h"

namespace zord {
namespace {

using ::testing::HasSubstr;
using testing::ReadFile;
using testing::WriteFile;

CalibrationState Sample() {
  CalibrationState s;
  s.cameras.resize(3);
  s.cameras[1].calibrated = true;
  s.cameras[1].lens.fx = 1187.25;
  s.cameras[1].lens.k1 = -0.0375;
  s.cameras[1].pose.rotation = Eigen::Quaterniond(0.5, 0.5, -0.5, 0.5);
  s.cameras[1].pose.translation = Eigen::Vector3d(10, -2000.5, 3000);
  s.global.position = Eigen::Vector3d(100, 0, -50);
  s.global.rotation = Eigen::Quaterniond(Eigen::AngleAxisd(0.3, Eigen::Vector3d::UnitY()));
  return s;
}

size_t FilesIn(const std::string& dir) {
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(dir), {}));
}

TEST(CalibrationStore, SaveThenLoadGivesTheSameState) {
  zortest::TempDir dir;
  const std::string path = dir.File("state.json");
  std::string error;
  ASSERT_TRUE(SaveCalibration(path, Sample(), &error)) << error;
  EXPECT_EQ(FilesIn(dir.path()), 1u);  // no temporary file left behind

  CalibrationState loaded;
  ASSERT_EQ(LoadCalibration(path, 3, &loaded, &error), LoadStatus::kLoaded) << error;
  ASSERT_EQ(loaded.cameras.size(), 3u);
  EXPECT_FALSE(loaded.cameras[0].calibrated);
  ASSERT_TRUE(loaded.cameras[1].calibrated);
  EXPECT_EQ(loaded.cameras[1].lens.fx, 1187.25);
  EXPECT_EQ(loaded.cameras[1].lens.k1, -0.0375);
  EXPECT_TRUE(loaded.cameras[1].pose.translation.isApprox(Eigen::Vector3d(10, -2000.5, 3000)));
  EXPECT_LT(loaded.cameras[1].pose.rotation.angularDistance(Sample().cameras[1].pose.rotation), 1e-12);
  EXPECT_TRUE(loaded.global.position.isApprox(Eigen::Vector3d(100, 0, -50)));

  // A scene with more cameras than the file: the others are uncalibrated.
  ASSERT_EQ(LoadCalibration(path, 5, &loaded, &error), LoadStatus::kLoaded) << error;
  EXPECT_EQ(loaded.cameras.size(), 5u);
  EXPECT_FALSE(loaded.cameras[4].calibrated);

  // Saving again replaces the file as a whole.
  CalibrationState blank;
  blank.cameras.resize(3);
  ASSERT_TRUE(SaveCalibration(path, blank, &error)) << error;
  ASSERT_EQ(LoadCalibration(path, 3, &loaded, &error), LoadStatus::kLoaded) << error;
  EXPECT_FALSE(loaded.cameras[1].calibrated);
  EXPECT_TRUE(loaded.global.IsIdentity());
  EXPECT_EQ(FilesIn(dir.path()), 1u);
}

TEST(CalibrationStore, BadFilesAreReportedAndLeftAlone) {
  zortest::TempDir dir;
  const std::string path = dir.File("state.json");
  std::string error;
  CalibrationState state = Sample();
  EXPECT_EQ(LoadCalibration(path, 3, &state, &error), LoadStatus::kMissing);

  std::string good;
  ASSERT_TRUE(SaveCalibration(path, Sample(), &error));
  good = ReadFile(path);

  const struct {
    std::string text;
    std::string message;
  } cases[] = {
      {good.substr(0, good.size() / 2), "not a valid state file"},
      {"", "not a valid state file"},
      {"[]", "expected a JSON object"},
      {R"({"format": "other", "version": 1})", "format"},
      {R"({"format": "zord-calibration", "version": 9})", "version"},
      {R"({"format": "zord-calibration", "version": 1, "global_transform": [0, 0, 0, 0, 0, 0, 0], "cameras": []})",
       "global_transform: zero quaternion"},
      {R"({"format": "zord-calibration", "version": 1, "global_transform": [0, 0, 0, 1, 0, 0, 0],
           "cameras": [{"id": 7, "calibrated": false}]})",
       "cameras[0].id: camera 7 is not in the scene"},
      {R"({"format": "zord-calibration", "version": 1, "global_transform": [0, 0, 0, 1, 0, 0, 0],
           "cameras": [{"id": 0, "calibrated": true, "lens": {"fx": 1}}]})",
       "cameras[0].lens.fy"},
      // Beyond the double range: the parser throws out_of_range, not parse_error.
      {R"({"format": "zord-calibration", "version": 1, "global_transform": [1e400, 0, 0, 1, 0, 0, 0]})",
       "not a valid state file"},
      // Cast to int unchecked, this was undefined behaviour.
      {R"({"format": "zord-calibration", "version": 1, "global_transform": [0, 0, 0, 1, 0, 0, 0],
           "cameras": [{"id": 0, "calibrated": true, "world_to_camera": {},
                        "lens": {"fx": 1, "fy": 1, "cx": 0, "cy": 0, "k1": 0, "width": 1e300, "height": 8}}]})",
       "cameras[0].lens.width: expected a whole number of pixels"},
  };
  for (const auto& c : cases) {
    WriteFile(path, c.text);
    CalibrationState untouched = Sample();
    EXPECT_EQ(LoadCalibration(path, 3, &untouched, &error), LoadStatus::kCorrupt) << c.text;
    EXPECT_THAT(error, HasSubstr(path)) << c.text;
    EXPECT_THAT(error, HasSubstr(c.message)) << c.text;
    EXPECT_TRUE(untouched.cameras[1].calibrated);
    EXPECT_EQ(ReadFile(path), c.text);  // loading never rewrites the file
  }
}

// Components near 1e154 overflow a plain norm: the state loaded as a zero
// rotation, and the file saved from it was refused at the next start.
TEST(CalibrationStore, HugeQuaternionsLoadAsUnitRotationsAndTheirSaveLoadsBack) {
  const std::string text = R"({"format": "zord-calibration", "version": 1,
      "global_transform": [0, 0, 0, 1e154, 1e154, 0, 0],
      "cameras": [{"id": 0, "calibrated": true,
                   "lens": {"fx": 1, "fy": 1, "cx": 0, "cy": 0, "k1": 0, "width": 8, "height": 8},
                   "world_to_camera": {"rotation": [1e-200, 0, 0, 3e-200], "translation": [0, 0, 0]}}]})";
  CalibrationState state, again;
  std::string error;
  ASSERT_TRUE(ParseCalibration(text, 1, &state, &error)) << error;
  EXPECT_NEAR(state.global.rotation.norm(), 1, 1e-12);
  EXPECT_NEAR(state.global.rotation.w(), std::sqrt(0.5), 1e-12);
  EXPECT_NEAR(state.cameras[0].pose.rotation.norm(), 1, 1e-12);
  ASSERT_TRUE(ParseCalibration(CalibrationToJson(state).dump(), 1, &again, &error)) << error;
  EXPECT_EQ(CalibrationToJson(again), CalibrationToJson(state));

  // Found by the fuzzer: re-normalising an already unit rotation moved its
  // last bits, so the saved state did not load back to itself.
  const std::string unit = R"({"format": "zord-calibration", "version": 1,
      "global_transform": [100, 0, -50, 0.988, 0, 0.149, 0],
      "cameras": [{"id": 1, "calibrated": true,
                   "lens": {"fx": 1187.25, "fy": 1187.5, "cx": 640, "cy": 512, "k1": -0.0375, "width": 1280, "height": 1071},
                   "world_to_camera": {"rotation": [5.5, 2.5, -0.5, 0.5], "translation": [10, -2000.5, 3000]}}]})";
  ASSERT_TRUE(ParseCalibration(unit, 12, &state, &error)) << error;
  const std::string saved = CalibrationToJson(state).dump(2);
  ASSERT_TRUE(ParseCalibration(saved, 12, &again, &error)) << error;
  EXPECT_EQ(CalibrationToJson(again).dump(2), saved);
}

TEST(CalibrationStore, FailedSaveKeepsTheOldFile) {
  zortest::TempDir dir;
  std::string error;
  EXPECT_FALSE(SaveCalibration(dir.File("missing/state.json"), Sample(), &error));
  EXPECT_THAT(error, HasSubstr("missing"));

  // A folder in the way of the rename: the old content stays, no temporary is left.
  const std::string blocked = dir.File("blocked");
  std::filesystem::create_directory(blocked);
  WriteFile(blocked + "/keep", "x");
  EXPECT_FALSE(WriteFileAtomically(blocked, "new", &error));
  EXPECT_EQ(ReadFile(blocked + "/keep"), "x");
  EXPECT_EQ(FilesIn(dir.path()), 1u);
}

}  // namespace
}  // namespace zord
