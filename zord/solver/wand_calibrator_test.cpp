#include "zord/solver/wand_calibrator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <thread>

#include "zord/solver/calib_accuracy.h"
#include "zord/solver/synthetic_capture.h"

namespace zord {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

SyntheticOptions SmallCapture() {
  SyntheticOptions o;
  o.cameras = 6;
  o.frames = 300;
  o.noise_px = 0.1;
  return o;
}

struct SolveRun {
  CalibrationResult result;
  std::vector<std::string> messages;
};

SolveRun Calibrate(const CalibrationInput& input, const SolverOptions& options = {}) {
  SolveRun run;
  run.result = CalibrateWand(input, options, [&](const PassReport& report) {
    for (const std::string& m : report.Messages()) run.messages.push_back(m);
  });
  return run;
}

// How far the solved cameras lie from the true ones, over every camera.
PoseErrors ErrorsOfEveryCamera(const SolveRun& run, const SyntheticCapture& capture) {
  return CompareCameraPoses(run.result.extrinsics, capture.true_poses,
                            std::vector<bool>(capture.true_poses.size(), true));
}

std::string Joined(const std::vector<std::string>& lines) {
  std::string all;
  for (const std::string& l : lines) all += l + "\n";
  return all;
}

TEST(WandCalibrator, CleanCaptureRecoversCamerasInAnUprightFrameAndReportsEachPass) {
  const SyntheticCapture capture = MakeSyntheticCapture(SmallCapture());
  const SolveRun run = Calibrate(capture.input);
  ASSERT_EQ(run.result.status, SolveStatus::kSuccess) << Joined(run.messages);
  ASSERT_EQ(run.messages.size(), 8u);
  for (int pass = 1; pass <= 4; ++pass) {
    EXPECT_EQ(run.messages[2 * pass - 2], "pass " + std::to_string(pass) + " success.");
    float error = -1;
    EXPECT_EQ(std::sscanf(run.messages[2 * pass - 1].c_str(), "error %f", &error), 1);
    EXPECT_GE(error, 0) << run.messages[2 * pass - 1];
    // Nothing after the number: the client would take it as a detail line.
    EXPECT_THAT(run.messages[2 * pass - 1], Not(HasSubstr(". ")));
  }
  EXPECT_NEAR(run.result.rms_px, 0.1, 0.01) << Joined(run.result.warnings);
  EXPECT_EQ(run.result.passes.back().rms_px, run.result.rms_px);

  const std::vector<bool> all(capture.true_poses.size(), true);
  EXPECT_EQ(run.result.calibrated, all);
  const PoseErrors errors = CompareCameraPoses(run.result.extrinsics, capture.true_poses, all);
  EXPECT_LT(errors.position_max_mm, 0.3);
  EXPECT_LT(errors.rotation_max_deg, 0.01);
  EXPECT_EQ(run.result.outliers, 0);

  // The world frame is centred on the wand and upright: the synthetic cameras
  // stand upright, so Y must match the true up closely.
  const Extrinsics& first = run.result.extrinsics[0];
  const Eigen::Vector3d up_in_camera = first.rotation * Eigen::Vector3d::UnitY();
  const Eigen::Vector3d true_up = capture.true_poses[0].rotation * Eigen::Vector3d::UnitY();
  EXPECT_GT(up_in_camera.dot(true_up), 0.999);
  Eigen::Vector3d centre = Eigen::Vector3d::Zero();
  for (const WandPose& w : run.result.wand_poses) centre += w.centre;
  EXPECT_LT((centre / run.result.wand_poses.size()).norm(), 1e-6);
  // Camera 1 looks along -Z seen from above.
  const Eigen::Vector3d view = first.rotation.conjugate() * Eigen::Vector3d::UnitZ();
  EXPECT_NEAR(view.x(), 0, 1e-9);
  EXPECT_LT(view.z(), 0);
  EXPECT_EQ(run.result.world.heading_camera, 0);
}

TEST(WandCalibrator, CameraThatSeesAlmostNothingIsNamed) {
  SyntheticCapture capture = MakeSyntheticCapture(SmallCapture());
  // Camera 4 (index 3) keeps its detections in two frames only.
  int kept_frames = 0;
  for (WandFrame& frame : capture.input.frames) {
    bool seen = false;
    std::erase_if(frame.observations, [&](const WandObservation& o) {
      if (o.camera != 3) return false;
      seen = true;
      return kept_frames >= 2;
    });
    kept_frames += seen;
  }
  const SolveRun run = Calibrate(capture.input);
  EXPECT_EQ(run.result.status, SolveStatus::kFailed);
  ASSERT_EQ(run.messages.size(), 1u);
  EXPECT_THAT(run.messages[0], HasSubstr("pass 1 failed. Camera 4 has too few samples"));
  EXPECT_THAT(run.messages[0], Not(HasSubstr("success")));
  EXPECT_EQ(run.result.passes[0].camera, 3);
  for (bool c : run.result.calibrated) EXPECT_FALSE(c);

  SolverOptions lenient;
  lenient.allow_uncalibrated_cameras = true;
  const SolveRun partial = Calibrate(capture.input, lenient);
  ASSERT_EQ(partial.result.status, SolveStatus::kSuccess) << Joined(partial.messages);
  EXPECT_FALSE(partial.result.calibrated[3]);
  EXPECT_TRUE(partial.result.calibrated[0]);
  ASSERT_EQ(partial.result.warnings.size(), 1u);
  EXPECT_THAT(partial.result.warnings[0], HasSubstr("Camera 4"));
}

TEST(WandCalibrator, CameraSeeingOneStripOfItsImageIsNamed) {
  SyntheticCapture capture = MakeSyntheticCapture(SmallCapture());
  // Camera 2 sees the wand in many frames, but all on one image row band.
  for (WandFrame& frame : capture.input.frames) {
    std::erase_if(frame.observations, [](const WandObservation& o) {
      return o.camera == 1 && std::abs(o.v - 512) > 8;
    });
  }
  const SolveRun run = Calibrate(capture.input);
  EXPECT_EQ(run.result.status, SolveStatus::kFailed);
  ASSERT_FALSE(run.messages.empty());
  EXPECT_THAT(run.messages.back(), HasSubstr("failed. Camera 2 "));
}

TEST(WandCalibrator, CameraThatDoesNotFitTheOthersIsNamed) {
  SyntheticCapture capture = MakeSyntheticCapture(SmallCapture());
  // Camera 3's lens is 2% longer than it claims: its detections cannot agree
  // with the others, although each on its own looks plausible.
  for (WandFrame& frame : capture.input.frames) {
    for (WandObservation& o : frame.observations) {
      if (o.camera != 2) continue;
      o.u = 640 + (o.u - 640) * 1.02;
      o.v = 512 + (o.v - 512) * 1.02;
    }
  }
  const SolveRun run = Calibrate(capture.input);
  EXPECT_EQ(run.result.status, SolveStatus::kFailed);
  ASSERT_FALSE(run.messages.empty());
  EXPECT_THAT(run.messages.back(), HasSubstr("pass 4 failed. Camera 3 reprojects with"));
  EXPECT_EQ(run.result.passes.back().camera, 2);
}

TEST(WandCalibrator, SplitCameraGraphFailsCleanly) {
  SyntheticCapture capture = MakeSyntheticCapture(SmallCapture());
  // Cameras 1-3 see only the first half of the capture, 4-6 only the second.
  const size_t half = capture.input.frames.size() / 2;
  for (size_t f = 0; f < capture.input.frames.size(); ++f) {
    std::erase_if(capture.input.frames[f].observations,
                  [&](const WandObservation& o) { return (o.camera < 3) != (f < half); });
  }
  const SolveRun run = Calibrate(capture.input);
  EXPECT_EQ(run.result.status, SolveStatus::kFailed);
  ASSERT_EQ(run.messages.size(), 1u);
  EXPECT_THAT(run.messages[0], HasSubstr("pass 1 failed. Camera "));
  EXPECT_THAT(run.messages[0], HasSubstr("shares fewer than"));
  for (bool c : run.result.calibrated) EXPECT_FALSE(c);

  // Allowed to leave cameras out, it calibrates one half and names the other.
  SolverOptions lenient;
  lenient.allow_uncalibrated_cameras = true;
  const SolveRun partial = Calibrate(capture.input, lenient);
  ASSERT_EQ(partial.result.status, SolveStatus::kSuccess) << Joined(partial.messages);
  const auto& calibrated = partial.result.calibrated;
  EXPECT_EQ(std::count(calibrated.begin(), calibrated.end(), true), 3);
  EXPECT_TRUE(calibrated[0] == calibrated[1] && calibrated[1] == calibrated[2]);
  ASSERT_EQ(partial.result.warnings.size(), 3u);
  EXPECT_THAT(partial.result.warnings[0], HasSubstr("left uncalibrated"));
}

TEST(WandCalibrator, OutliersAndReflectionsAreRejected) {
  SyntheticOptions options = SmallCapture();
  options.outlier_fraction = 0.03;
  options.dropout = 0.1;
  SyntheticCapture capture = MakeSyntheticCapture(options);
  // Every 25th detection has a reflection: a second blob of its LED 40 px
  // away; every 25th other one is shifted by 1 px (a blob partly hidden).
  int reflections = 0, shifted = 0;
  std::vector<size_t> genuine;  // detections per frame before the reflections
  for (WandFrame& frame : capture.input.frames) {
    genuine.push_back(frame.observations.size());
    for (size_t k = 0; k < genuine.back(); k += 25, ++reflections) {
      WandObservation o = frame.observations[k];
      o.v += o.v > 500 ? -40 : 40;
      frame.observations.push_back(o);
    }
    for (size_t k = 12; k < genuine.back(); k += 25, ++shifted) frame.observations[k].u += 1;
  }
  const SolveRun run = Calibrate(capture.input);
  ASSERT_EQ(run.result.status, SolveStatus::kSuccess) << Joined(run.messages);
  // The shifted blobs are left out too: they would raise the RMS well above the noise.
  EXPECT_NEAR(run.result.rms_px, 0.1, 0.005);
  EXPECT_GT(run.result.outliers, 0.9 * shifted);
  // Each reflection is left out; the LED's true blob is kept unless it was
  // moved as an outlier itself (3 %).
  int originals_lost = 0;
  for (const RejectedDetection& r : run.result.rejected)
    originals_lost += r.repeated && static_cast<size_t>(r.observation) < genuine[r.frame];
  EXPECT_EQ(run.result.repeated, reflections + originals_lost);
  EXPECT_LT(originals_lost, reflections / 10);
  const PoseErrors errors = ErrorsOfEveryCamera(run, capture);
  EXPECT_LT(errors.position_max_mm, 0.5);
}

// A glass wall beyond one side of the room: the cameras facing it see the
// wand's mirror image with the same LED ids, often without the wand itself,
// and when with it, both blobs are set aside as repeated.
TEST(WandCalibrator, CamerasFacingAMirrorArePosedFromTheWandNotItsImage) {
  SyntheticOptions options = SmallCapture();
  options.cameras = 8;
  SyntheticCapture capture = MakeSyntheticCapture(options);
  constexpr double kMirrorX = -3300;
  int images = 0;
  for (size_t f = 0; f < capture.input.frames.size(); ++f) {
    const WandPose& pose = capture.true_wand[f];
    for (int c = 0; c < options.cameras; ++c) {
      const Intrinsics& lens = capture.true_lenses[c];
      for (const WandLed& led : capture.input.wand) {
        Eigen::Vector3d image = pose.centre + led.local.x() * pose.direction;
        image.x() = 2 * kMirrorX - image.x();
        Eigen::Vector2d uv;
        if (!ImageCamera(lens, FieldOf(lens), capture.true_poses[c].ToCamera(image), &uv)) continue;
        capture.input.frames[f].observations.push_back({c, led.id, uv.x(), uv.y()});
        ++images;
      }
    }
  }
  ASSERT_GT(images, 1000);
  const SolveRun run = Calibrate(capture.input);
  ASSERT_EQ(run.result.status, SolveStatus::kSuccess) << Joined(run.messages);
  EXPECT_GT(run.result.repeated, 0);
  const PoseErrors errors = ErrorsOfEveryCamera(run, capture);
  EXPECT_LT(errors.position_max_mm, 0.5);
  // The consensus steps are repeatable: the same capture gives the same cameras.
  const SolveRun again = Calibrate(capture.input);
  ASSERT_EQ(again.result.status, SolveStatus::kSuccess);
  const PoseErrors between = CompareCameraPoses(again.result.extrinsics, run.result.extrinsics,
                                                std::vector<bool>(options.cameras, true));
  EXPECT_LT(between.position_max_mm, 1e-6);
  EXPECT_EQ(again.result.outliers, run.result.outliers);
}

// The lens and cameras from an even third of the frames, the other frames'
// wand poses fitted to them, misread detections among them.
TEST(WandCalibrator, RefinesAPerturbedLensOnASubsetAndPosesEveryFrame) {
  SyntheticOptions options = SmallCapture();
  options.focal_error = 0.01;
  options.principal_error_px = 4;
  options.true_k1 = -0.05;
  options.outlier_fraction = 0.02;
  const SyntheticCapture capture = MakeSyntheticCapture(options);
  SolverOptions solver;
  solver.refine_intrinsics = true;
  solver.max_lens_frames = 100;
  const SolveRun run = Calibrate(capture.input, solver);
  ASSERT_EQ(run.result.status, SolveStatus::kSuccess) << Joined(run.messages);
  EXPECT_NEAR(run.result.rms_px, 0.1, 0.01) << Joined(run.result.warnings);
  EXPECT_EQ(run.result.frames_used, options.frames);
  long detections = 0;
  for (const WandFrame& frame : capture.input.frames) detections += frame.observations.size();
  EXPECT_NEAR(run.result.outliers, options.outlier_fraction * detections, 0.3 * options.outlier_fraction * detections);
  for (int c = 0; c < options.cameras; ++c) {
    const Intrinsics& got = run.result.intrinsics[c];
    const Intrinsics& want = capture.true_lenses[c];
    EXPECT_NEAR(got.fx / want.fx, 1, 5e-4) << "camera " << c;
    EXPECT_NEAR(got.cx, want.cx, 1.0) << "camera " << c;
    EXPECT_NEAR(got.k1, want.k1, 0.005) << "camera " << c;
  }
  const PoseErrors errors = ErrorsOfEveryCamera(run, capture);
  EXPECT_LT(errors.position_max_mm, 1.0);
}

TEST(WandCalibrator, QualityLimitsTheFramesUsed) {
  const SyntheticCapture capture = MakeSyntheticCapture(SmallCapture());
  SolverOptions options;
  options.quality = 100;
  const SolveRun run = Calibrate(capture.input, options);
  ASSERT_EQ(run.result.status, SolveStatus::kSuccess) << Joined(run.messages);
  EXPECT_EQ(run.result.frames_used, 100);
  // Spread over the whole capture, not its first hundred frames.
  EXPECT_GT(run.result.wand_poses.back().frame - run.result.wand_poses.front().frame, 280);
}

TEST(WandCalibrator, BadInputFailsWithAReason) {
  SyntheticCapture capture = MakeSyntheticCapture(SmallCapture());
  CalibrationInput bent = capture.input;
  bent.wand[3].local.y() += 20;
  SolveRun run = Calibrate(bent);
  ASSERT_EQ(run.messages.size(), 1u);
  EXPECT_THAT(run.messages[0], HasSubstr("pass 1 failed. the wand is not straight"));

  CalibrationInput stray = capture.input;
  stray.frames[5].observations.push_back({9, 0, 10, 10});
  run = Calibrate(stray);
  ASSERT_EQ(run.messages.size(), 1u);
  EXPECT_THAT(run.messages[0], HasSubstr("camera 10 but there are 6 cameras"));

  CalibrationInput empty = capture.input;
  empty.frames.clear();
  run = Calibrate(empty);
  EXPECT_EQ(run.result.status, SolveStatus::kFailed);
  ASSERT_EQ(run.messages.size(), 1u);
  EXPECT_THAT(run.messages[0], HasSubstr("pass 1 failed. Camera 1 has too few samples"));

  SolverOptions bad;
  bad.outlier_threshold_px = -1;
  run = Calibrate(capture.input, bad);
  ASSERT_EQ(run.messages.size(), 1u);
  EXPECT_THAT(run.messages[0], HasSubstr("outlier_threshold_px"));
}

TEST(WandCalibrator, CancelStopsPromptlyWithoutFurtherReports) {
  SyntheticOptions big = SmallCapture();
  big.frames = 1500;
  const SyntheticCapture capture = MakeSyntheticCapture(big);
  std::atomic<bool> cancel{false};
  SolverOptions options;
  options.cancel = &cancel;
  std::vector<int> passes;
  // Cancel as soon as pass 2 ends: the adjustment must not report.
  const CalibrationResult result = CalibrateWand(capture.input, options, [&](const PassReport& r) {
    passes.push_back(r.pass);
    if (r.pass == 2) cancel = true;
  });
  EXPECT_EQ(result.status, SolveStatus::kCancelled);
  EXPECT_EQ(passes, (std::vector<int>{1, 2}));

  // From another thread, in the middle of the run.
  cancel = false;
  std::thread stopper([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    cancel = true;
  });
  const auto start = std::chrono::steady_clock::now();
  const CalibrationResult stopped = CalibrateWand(capture.input, options);
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  stopper.join();
  EXPECT_EQ(stopped.status, SolveStatus::kCancelled);
  EXPECT_LT(seconds, 30);  // a hang guard, not a speed check
}

}  // namespace
}  // namespace zord
