// The simulation engine without the network: markers, rigids, cameras and
// images against the simulation's truth, requests and their errors, the
// calibration state and its files, and the calibration run beside the clock.
// Heavy (SERIAL): the solver uses both cores for a while.
#include "zord/room/sim_engine.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <set>
#include <thread>

#include "testing/zord_process.h"
#include "zord/server/live_test_support.h"
#include "zord/room/sim_testing.h"
#include "zord/room/calibration_job.h"
#include "zord/solver/calib_accuracy.h"
#include "zord/solver/camera_coverage.h"
#include "zorsock/feedback_wire.h"
#include "zorsock/zorsock_feedback.h"

namespace zord {
namespace {

using ::testing::HasSubstr;
using nlohmann::json;

const ClientContext kNormal{1, 0};
const ClientContext kCalib{2, ZOR_FLAG_CALIBRATE};

std::unique_ptr<SimEngine> MakeEngine(SimOptions options) {
  std::string error;
  auto engine = SimEngine::Create(options, &error);
  EXPECT_TRUE(engine) << error;
  return engine;
}

std::unique_ptr<SimEngine> Calibrated(const std::string& state_file = "") {
  SimOptions options;
  options.scene_file = zortest::DataPath("scenes/calibrated.json");
  options.state_file = state_file;
  return MakeEngine(options);
}

FrameData Step(SimEngine& engine, int frames = 1) {
  static int number = 0;
  FrameData out;
  for (int i = 0; i < frames; ++i) {
    ++number;
    engine.Step(number, 1.0 / 480, number * 2083, out);
  }
  return out;
}

json Control(SimEngine& engine, const json& request) { return json::parse(engine.Control(request.dump())); }

Eigen::Vector3d Vec(const json& v) { return Eigen::Vector3d(v[0], v[1], v[2]); }

Eigen::Vector3d LedTruth(const json& truth, int id) {
  for (const json& led : truth["leds"]) {
    if (led["id"] == id) return Vec(led["position"]);
  }
  ADD_FAILURE() << "no LED " << id;
  return Eigen::Vector3d::Zero();
}

// A tracker of `type` on `id` holding the given LEDs (with their scene
// positions for rigid kinds), created disabled.
void AddTracker(SimEngine& engine, int id, int type, const std::vector<SceneLed>& leds) {
  ASSERT_EQ(engine.TrackerOpi(kNormal, id, ZOR_TRACKER_CREATE, type), ZOR_NO_ERROR);
  for (size_t i = 0; i < leds.size(); ++i) {
    const int marker = (id << 12) | static_cast<int>(i);
    ASSERT_EQ(engine.MarkerInts(kNormal, marker, ZOR_MARKER_LED, {leds[i].id}), ZOR_NO_ERROR);
    if (type == ZOR_POINT_TRACKER) continue;
    const Eigen::Vector3f p = leds[i].local.cast<float>();
    ASSERT_EQ(engine.MarkerFloats(kNormal, marker, ZOR_MARKER_POSITION, {p.x(), p.y(), p.z()}),
              ZOR_NO_ERROR);
  }
}

std::vector<SceneLed> AllLeds(const Scene& scene) {
  std::vector<SceneLed> leds;
  for (int slot = 0; slot < scene.LedCount(); ++slot) leds.push_back(SceneLed{scene.LedId(slot)});
  return leds;
}

void ExpectPose(const float* pose, const Eigen::Vector3d& p, const Eigen::Quaterniond& q,
                double mm, double rad) {
  EXPECT_LT((Eigen::Vector3d(pose[0], pose[1], pose[2]) - p).norm(), mm);
  const Eigen::Quaterniond got(pose[3], pose[4], pose[5], pose[6]);
  EXPECT_LT(got.normalized().angularDistance(q), rad);
}

TEST(SimEngine, ReportsMarkersOfEnabledTrackersOnly) {
  auto engine = Calibrated();
  const Scene& scene = engine->scene();
  AddTracker(*engine, 0, ZOR_POINT_TRACKER, AllLeds(scene));
  AddTracker(*engine, 5, ZOR_POINT_TRACKER, {SceneLed{9}, SceneLed{500}});
  EXPECT_TRUE(Step(*engine).markers.empty());

  ASSERT_EQ(engine->TrackerOp(kNormal, 0, ZOR_ON), ZOR_NO_ERROR);
  ASSERT_EQ(engine->TrackerOp(kNormal, 5, ZOR_ON), ZOR_NO_ERROR);
  const FrameData frame = Step(*engine);
  const json truth = Control(*engine, {{"cmd", "truth"}});
  ASSERT_EQ(frame.markers.size(), static_cast<size_t>(scene.LedCount()) + 2);
  int seen = 0;
  for (const ZORMarker& m : frame.markers) {
    EXPECT_EQ(m.frame, frame.number);
    const int tracker = m.id >> 12, index = m.id & 0xfff;
    if (tracker == 5) {
      // LED 9 again under its second tracker; LED 500 does not exist.
      EXPECT_EQ(index == 0, m.cond > 0) << index;
      continue;
    }
    ASSERT_EQ(tracker, 0);
    if (m.cond <= 0) continue;
    ++seen;
    EXPECT_GE(m.flag, 2u);
    EXPECT_LE(m.cond, 1.0f);
    EXPECT_LT((Eigen::Vector3d(m.x, m.y, m.z) - LedTruth(truth, scene.LedId(index))).norm(), 2.0)
        << "LED " << scene.LedId(index);
  }
  EXPECT_GE(seen, scene.LedCount() - 2);

  ASSERT_EQ(engine->TrackerOp(kNormal, 0, ZOR_OFF), ZOR_NO_ERROR);
  EXPECT_EQ(Step(*engine).markers.size(), 2u);
}

TEST(SimEngine, UncalibratedCamerasGiveNoMarkers) {
  auto engine = MakeEngine({});  // the built-in scene starts uncalibrated
  const Scene& scene = engine->scene();
  AddTracker(*engine, 0, ZOR_POINT_TRACKER, AllLeds(scene));
  ASSERT_EQ(engine->TrackerOp(kNormal, 0, ZOR_ON), ZOR_NO_ERROR);
  const FrameData frame = Step(*engine);
  ASSERT_EQ(frame.markers.size(), static_cast<size_t>(scene.LedCount()));
  for (const ZORMarker& m : frame.markers) EXPECT_EQ(m.cond, 0);
  ASSERT_EQ(frame.detectors.size(), scene.cameras.size());
  for (const ZORDetector& d : frame.detectors) EXPECT_EQ(d.state, 1);

  // Cameras are shown at their nominal mounting.
  const auto cameras = engine->Cameras();
  ASSERT_EQ(cameras.size(), scene.cameras.size());
  for (size_t c = 0; c < cameras.size(); ++c) {
    EXPECT_LT(cameras[c].cond, 0);
    Eigen::Vector3d p;
    Eigen::Quaterniond q;
    ReportedPose(scene.cameras[c].mounting, &p, &q);
    ExpectPose(cameras[c].pose, p, q, 0.01, 1e-5);
  }
}

TEST(SimEngine, CamerasAndRigidMatchTheTruthAndTheGlobalTransformMovesEverything) {
  auto engine = Calibrated();
  const Scene& scene = engine->scene();
  const json truth = Control(*engine, {{"cmd", "truth"}});
  auto cameras = engine->Cameras();
  ASSERT_EQ(cameras.size(), truth["cameras"].size());
  for (size_t c = 0; c < cameras.size(); ++c) {
    const json& pose = truth["cameras"][c]["pose"];
    EXPECT_GT(cameras[c].cond, 0);
    ExpectPose(cameras[c].pose, Vec(pose),
               Eigen::Quaterniond(pose[3], pose[4], pose[5], pose[6]), 0.01, 1e-5);
  }

  AddTracker(*engine, 0, ZOR_POINT_TRACKER, {SceneLed{17}});
  AddTracker(*engine, 3, ZOR_RIGID_TRACKER, scene.bodies[0].leds);
  ASSERT_EQ(engine->TrackerOp(kNormal, 0, ZOR_ON), ZOR_NO_ERROR);
  ASSERT_EQ(engine->TrackerOp(kNormal, 3, ZOR_ON), ZOR_NO_ERROR);
  const Eigen::Quaterniond q = Eigen::Quaterniond(0.9, 0.1, -0.3, 0.2).normalized();
  Control(*engine, {{"cmd", "body"}, {"mode", "rest"}, {"position", {200, 1100, -300}},
                    {"rotation", {q.w(), q.x(), q.y(), q.z()}}});
  const FrameData before = Step(*engine);
  ASSERT_EQ(before.rigids.size(), 1u);
  const ZORRigid& r = before.rigids[0];
  EXPECT_EQ(r.id, 3);
  EXPECT_GT(r.cond, 0.5f);
  EXPECT_EQ(r.flag, 5u);
  ExpectPose(r.pose, {200, 1100, -300}, q, 0.5, 0.005);

  const Eigen::Quaterniond gq(Eigen::AngleAxisd(M_PI / 2, Eigen::Vector3d::UnitY()));
  const Eigen::Vector3d gp(1000, -50, 20);
  const std::vector<float> g = {1000, -50, 20, float(gq.w()), float(gq.x()), float(gq.y()), float(gq.z())};
  EXPECT_EQ(engine->SetFloats(kNormal, ZOR_GLOBAL_TRANSFORM, g), ZOR_INVALID_OPERATION);
  EXPECT_EQ(engine->SetFloats(kCalib, ZOR_GLOBAL_TRANSFORM, {1, 2, 3}), ZOR_INVALID_VALUE);
  EXPECT_EQ(engine->SetFloats(kCalib, ZOR_GLOBAL_TRANSFORM, {0, 0, 0, 0, 0, 0, 0}), ZOR_INVALID_VALUE);
  ASSERT_EQ(engine->SetFloats(kCalib, ZOR_GLOBAL_TRANSFORM, g), ZOR_NO_ERROR);
  std::vector<float> read;
  ASSERT_EQ(engine->GetFloats(kNormal, ZOR_GLOBAL_TRANSFORM, read), ZOR_NO_ERROR);
  ASSERT_EQ(read.size(), 7u);
  for (int i = 0; i < 7; ++i) EXPECT_NEAR(read[i], g[i], 1e-6);

  const FrameData after = Step(*engine);
  const ZORMarker& m0 = before.markers.at(0);
  const ZORMarker& m1 = after.markers.at(0);
  ASSERT_GT(m1.cond, 0);
  EXPECT_LT((Eigen::Vector3d(m1.x, m1.y, m1.z) - (gq * Eigen::Vector3d(m0.x, m0.y, m0.z) + gp)).norm(), 1);
  const float* r0 = before.rigids.at(0).pose;
  ExpectPose(after.rigids.at(0).pose, gq * Eigen::Vector3d(r0[0], r0[1], r0[2]) + gp,
             gq * Eigen::Quaterniond(r0[3], r0[4], r0[5], r0[6]), 1, 0.01);
  const float* c0 = cameras[0].pose;
  ExpectPose(engine->Cameras()[0].pose, gq * Eigen::Vector3d(c0[0], c0[1], c0[2]) + gp,
             gq * Eigen::Quaterniond(c0[3], c0[4], c0[5], c0[6]), 0.01, 1e-5);
  // The truth stays in the room's own frame.
  EXPECT_EQ(Control(*engine, {{"cmd", "truth"}})["cameras"][0], truth["cameras"][0]);

  // Too few of the body's markers seen: cond 0 and the last pose.
  for (int id : {8, 9, 10}) Control(*engine, {{"cmd", "led"}, {"id", id}, {"visible", false}});
  const ZORRigid lost = Step(*engine).rigids.at(0);
  EXPECT_EQ(lost.cond, 0);
  for (int i = 0; i < 7; ++i) EXPECT_EQ(lost.pose[i], after.rigids[0].pose[i]);
}

TEST(SimEngine, StreamsImagesAndDetectorsOnlyWhenAsked) {
  auto engine = Calibrated();
  const Scene& scene = engine->scene();
  FrameData out;
  out.want_images = out.want_detectors = false;
  engine->Step(1, 0.002, 0, out);
  EXPECT_TRUE(out.images.empty());
  EXPECT_TRUE(out.detectors.empty());
  out.want_images = out.want_detectors = true;
  engine->Step(2, 0.002, 0, out);
  ASSERT_EQ(out.detectors.size(), scene.cameras.size());
  int total = 0;
  for (const ZORDetector& d : out.detectors) {
    EXPECT_EQ(d.frame, 2);
    EXPECT_EQ(d.state, 0);
    EXPECT_EQ(d.width, 1280);
    total += d.detections;
  }
  EXPECT_EQ(static_cast<size_t>(total), out.images.size());
  EXPECT_GT(total, scene.LedCount() * 4);
  for (const ZORImage& im : out.images) {
    EXPECT_GE(scene.SlotOf(im.led), 0);
    EXPECT_TRUE(im.u >= 0 && im.u < 1280 && im.v >= 0 && im.v < 1024);
    EXPECT_GT(im.size, 1);
    EXPECT_TRUE(im.intensity > 0 && im.intensity <= 1);
  }
}

TEST(SimEngine, CalibrationRequestsNeedACalibrationSession) {
  auto engine = Calibrated();
  EXPECT_EQ(engine->SetInteger(kNormal, ZOR_CALIB_LOAD_EXISTING, 0), ZOR_INVALID_OPERATION);
  EXPECT_EQ(engine->SetInteger(kNormal, ZOR_CALIB_SAVE, 1), ZOR_INVALID_OPERATION);
  EXPECT_EQ(engine->TrackerOp(kNormal, 1, ZOR_CALIB_CAPTURE_START), ZOR_INVALID_OPERATION);
  EXPECT_EQ(engine->TrackerOpi(kNormal, 1, ZOR_CALIB_RUN, 400), ZOR_INVALID_OPERATION);
  EXPECT_EQ(engine->SetInteger(kCalib, 0x777, 1), ZOR_INVALID_ENUM);
  EXPECT_EQ(engine->SetInteger(kCalib, ZOR_CALIB_LOAD_EXISTING, 5), ZOR_INVALID_VALUE);
  EXPECT_EQ(engine->TrackerOp(kCalib, 1, 0x777), ZOR_INVALID_ENUM);
  EXPECT_EQ(engine->TrackerOpi(kCalib, 1, 0x777, 0), ZOR_INVALID_ENUM);
  EXPECT_EQ(engine->MarkerInts(kCalib, 0, 0x777, {1}), ZOR_INVALID_ENUM);
  EXPECT_EQ(engine->MarkerFloats(kCalib, 0, 0x777, {1, 2, 3}), ZOR_INVALID_ENUM);
  std::vector<int32_t> ints;
  EXPECT_EQ(engine->GetInts(kCalib, 0x777, ints), ZOR_INVALID_ENUM);
  // Capturing needs the calibration tracker.
  EXPECT_EQ(engine->TrackerOp(kCalib, 1, ZOR_CALIB_CAPTURE_START), ZOR_INVALID_OPERATION);
  EXPECT_EQ(engine->TrackerOp(kCalib, 4, ZOR_CALIB_CAPTURE_START), ZOR_INVALID_VALUE);

  // Nothing captured: the run fails at once and says why.
  std::string message;
  ASSERT_EQ(engine->GetString(kCalib, ZOR_CALIB_MESSAGE, message), ZOR_NO_ERROR);
  EXPECT_EQ(message, "");
  EXPECT_EQ(engine->TrackerOpi(kCalib, 1, ZOR_CALIB_RUN, 400), ZOR_NO_ERROR);
  EXPECT_FALSE(engine->Calibrating());
  ASSERT_EQ(engine->GetString(kCalib, ZOR_CALIB_MESSAGE, message), ZOR_NO_ERROR);
  EXPECT_EQ(message, "pass 1 failed. no wand data captured");
  ASSERT_EQ(engine->GetString(kCalib, ZOR_CALIB_MESSAGE, message), ZOR_NO_ERROR);
  EXPECT_EQ(message, "");
  // A peer asking again and again without reading does not grow the queue without end.
  for (int i = 0; i < 100'000; ++i) engine->TrackerOpi(kCalib, 1, ZOR_CALIB_RUN, 400);
  int queued = 0;
  while (engine->GetString(kCalib, ZOR_CALIB_MESSAGE, message) == ZOR_NO_ERROR && !message.empty())
    ++queued;
  EXPECT_EQ(queued, static_cast<int>(MessageQueue::kMaxMessages));
}

TEST(SimEngine, CapturesWandDetectionsForTheSolver) {
  auto engine = Calibrated();
  const Scene& scene = engine->scene();
  engine->SessionOpened(kCalib);
  AddTracker(*engine, 1, ZOR_CALIB_TRACKER, scene.wand.leds);
  ASSERT_EQ(engine->TrackerOp(kCalib, 1, ZOR_ON), ZOR_NO_ERROR);
  Step(*engine, 5);
  EXPECT_TRUE(engine->CalibrationData().frames.empty());

  ASSERT_EQ(engine->TrackerOp(kCalib, 1, ZOR_CALIB_CAPTURE_START), ZOR_NO_ERROR);
  Step(*engine, 10);
  ASSERT_EQ(engine->TrackerOp(kCalib, 1, ZOR_CALIB_CAPTURE_STOP), ZOR_NO_ERROR);
  Step(*engine, 5);
  ASSERT_EQ(engine->TrackerOp(kCalib, 1, ZOR_CALIB_CAPTURE_START), ZOR_NO_ERROR);
  FrameData last = Step(*engine, 4);
  CalibrationCapture data = engine->CalibrationData();
  ASSERT_EQ(data.frames.size(), 14u);  // captures add up
  EXPECT_EQ(data.frames.back().frame, last.number);
  ASSERT_EQ(data.nominal.size(), scene.cameras.size());
  EXPECT_EQ(data.nominal[3].fx, scene.cameras[3].nominal.fx);
  std::set<int> cameras;
  for (const CalibrationFrame& f : data.frames) {
    EXPECT_GT(f.count, 8u);
    for (const CalibrationObservation& o : data.Observations(f)) {
      EXPECT_TRUE(o.led >= 0 && o.led < 8);
      EXPECT_TRUE(o.u >= 0 && o.u < 1280 && o.v >= 0 && o.v < 1024);
      cameras.insert(o.camera);
    }
  }
  EXPECT_EQ(cameras.size(), scene.cameras.size());
  EXPECT_EQ(Control(*engine, {{"cmd", "status"}})["captured_frames"], 14);

  // The live counts are the solver's own counts of the same capture.
  std::vector<int32_t> ints;
  ASSERT_EQ(engine->GetInts(kNormal, ZOR_CALIB_COVERAGE, ints), ZOR_NO_ERROR);
  zorsock::wire::CoverageReply live;
  ASSERT_TRUE(zorsock::wire::DecodeCoverage(ints, &live));
  const CalibrationInput input = MakeSolverInput(data);
  StraightWand wand;
  SampleSet set;
  std::string error;
  ASSERT_TRUE(MakeStraightWand(input.wand, 2, &wand, &error)) << error;
  ASSERT_TRUE(BuildSampleSet(input.cameras, input.frames, wand, 0, &set, &error)) << error;
  const std::vector<CameraCoverage> coverage = MeasureCoverage(set);
  const CameraLinks links = CountSharedSamples(set);
  EXPECT_EQ(live.summary.frames, static_cast<int>(set.frames.size()));
  for (int c = 0; c < set.cameras; ++c) {
    EXPECT_EQ(live.cameras[c].frames, coverage[c].frames);
    EXPECT_EQ(live.cameras[c].samples, coverage[c].samples);
    EXPECT_NEAR(live.cameras[c].spread * 1024, coverage[c].spread_px, 0.01);
    EXPECT_GT(live.cameras[c].covered, 0);
    for (int d = 0; d < set.cameras; ++d)
      EXPECT_EQ(live.shared_frames[c * set.cameras + d], links.shared_frames(c, d));
  }

  ASSERT_EQ(engine->TrackerOp(kCalib, 1, ZOR_CALIB_CAPTURE_RESET), ZOR_NO_ERROR);
  Step(*engine, 3);
  EXPECT_TRUE(engine->CalibrationData().frames.empty());
  ASSERT_EQ(engine->GetInts(kNormal, ZOR_CALIB_COVERAGE, ints), ZOR_NO_ERROR);
  ASSERT_TRUE(zorsock::wire::DecodeCoverage(ints, &live));
  EXPECT_EQ(live.summary.frames, 0);
}

int CalibratedCount(SimEngine& engine) {
  int n = 0;
  for (const ZORCamera& c : engine.Cameras()) n += c.cond > 0;
  return n;
}

TEST(SimEngine, BlankCalibrationIsDroppedUnlessSaved) {
  zortest::TempDir dir;
  const std::string state = dir.File("state.json");
  auto engine = Calibrated(state);
  ASSERT_EQ(CalibratedCount(*engine), 8);
  engine->SessionOpened(kCalib);
  ASSERT_EQ(engine->SetInteger(kCalib, ZOR_CALIB_LOAD_EXISTING, 0), ZOR_NO_ERROR);
  EXPECT_EQ(CalibratedCount(*engine), 0);
  engine->SessionClosed(kCalib);
  EXPECT_EQ(CalibratedCount(*engine), 8);  // back to the last saved calibration

  // A solved (here: half blank) calibration, saved with a global transform.
  engine->SessionOpened(kCalib);
  ASSERT_EQ(engine->SetInteger(kCalib, ZOR_CALIB_LOAD_EXISTING, 1), ZOR_NO_ERROR);
  std::vector<CameraCalibration> cams(4);
  engine->SetWorkingCameras(cams, kCalib.session);
  ASSERT_EQ(engine->SetFloats(kCalib, ZOR_GLOBAL_TRANSFORM, {5, 6, 7, 1, 0, 0, 0}), ZOR_NO_ERROR);
  ASSERT_EQ(engine->SetInteger(kCalib, ZOR_CALIB_SAVE, 1), ZOR_NO_ERROR);
  engine->SessionClosed(kCalib);
  EXPECT_EQ(CalibratedCount(*engine), 4);

  // The state file outlives the server.
  engine = Calibrated(state);
  EXPECT_EQ(CalibratedCount(*engine), 4);
  std::vector<float> g;
  ASSERT_EQ(engine->GetFloats(kNormal, ZOR_GLOBAL_TRANSFORM, g), ZOR_NO_ERROR);
  EXPECT_EQ(g[0], 5);
  EXPECT_EQ(g[2], 7);
}

TEST(SimEngine, StartUpFilesAreCheckedAndBadStateIsKept) {
  zortest::TempDir dir;
  const std::string state = dir.File("state.json");
  testing::WriteFile(state, "{ broken");
  auto engine = Calibrated(state);
  ASSERT_TRUE(engine);
  EXPECT_EQ(CalibratedCount(*engine), 0);  // corrupt state: start uncalibrated
  Step(*engine, 2);
  EXPECT_EQ(testing::ReadFile(state), "{ broken");

  std::string error;
  SimOptions options;
  options.calibration_file = dir.File("nothing.json");
  EXPECT_FALSE(SimEngine::Create(options, &error));
  EXPECT_THAT(error, HasSubstr("nothing.json"));
  options = {};
  options.scene_file = dir.File("nothing.json");
  EXPECT_FALSE(SimEngine::Create(options, &error));
  EXPECT_THAT(error, HasSubstr("nothing.json"));

  // The truth file is written at start; a calibration file is used instead of the state.
  options = {};
  options.scene_file = zortest::DataPath("scenes/calibrated.json");
  options.state_file = dir.File("saved.json");
  auto source = MakeEngine(options);
  source->SessionOpened(kCalib);
  ASSERT_EQ(source->SetInteger(kCalib, ZOR_CALIB_SAVE, 1), ZOR_NO_ERROR);
  options = {};
  options.calibration_file = dir.File("saved.json");
  options.truth_out = dir.File("truth.json");
  engine = MakeEngine(options);
  EXPECT_EQ(CalibratedCount(*engine), 8);
  const json truth = json::parse(testing::ReadFile(dir.File("truth.json")));
  EXPECT_EQ(truth["cameras"].size(), 8u);
}

// A following operator learns the alignment point wanted from the client's
// notice and forgets it when that client goes; bad notices are refused.
TEST(SimEngine, ClientNoticesLeadAFollowingOperator) {
  SimOptions options;
  options.follow = true;
  auto engine = MakeEngine(options);
  const auto wand = [&] {
    const json pose = Control(*engine, {{"cmd", "truth"}})["wand"]["pose"];
    return Vec(pose);
  };
  EXPECT_EQ(engine->SetInteger(kNormal, ZOR_CLIENT_ACTIVITY, ZOR_ACTIVITY_ALIGN + 4), ZOR_INVALID_VALUE);
  ASSERT_EQ(engine->SetInteger(kNormal, ZOR_CLIENT_ACTIVITY, ZOR_ACTIVITY_ALIGN + 1), ZOR_NO_ERROR);
  Step(*engine, 960);
  const json truth = Control(*engine, {{"cmd", "truth"}});
  EXPECT_LT((wand() - LedTruth(truth, 15)).norm(), 1e-9);  // the end of the frame's X arm
  engine->SessionClosed(kNormal);
  Step(*engine, 960);
  EXPECT_LT((wand() - engine->scene().volume_centre).norm(), 1e-9);
}

TEST(SimEngine, ControlRequestsAnswerInJson) {
  auto engine = Calibrated();
  for (const char* bad : {"", "nonsense", "[]", "{\"cmd\": 3}", "{\"cmd\": \"wand\", \"mode\": 1}",
                          "{\"cmd\": \"\xff\"}"}) {
    const json reply = json::parse(engine->Control(bad));
    EXPECT_EQ(reply["ok"], false) << bad;
    EXPECT_TRUE(reply["error"].is_string()) << bad;
  }

  ASSERT_EQ(Control(*engine, {{"cmd", "wand"}, {"mode", "rest"}, {"position", {0, 900, 0}},
                              {"direction", {1, 0, 0}}})["ok"],
            true);
  Step(*engine, 3);
  const json truth = Control(*engine, {{"cmd", "truth"}});
  EXPECT_EQ(truth["ok"], true);
  EXPECT_EQ(truth["leds"].size(), 21u);
  EXPECT_EQ(LedTruth(truth, 7), Eigen::Vector3d(450, 900, 0));
  EXPECT_EQ(truth["wand"]["pose"].size(), 7u);
  EXPECT_EQ(truth["wand"]["leds"].size(), 8u);
  EXPECT_EQ(truth["bodies"][0]["pose"].size(), 7u);
  EXPECT_EQ(truth["align"]["leds"].size(), 4u);
  EXPECT_TRUE(truth["cameras"][0]["lens"].contains("k1"));

  const json status = Control(*engine, {{"cmd", "status"}});
  EXPECT_EQ(status["ok"], true);
  EXPECT_EQ(status["wand"], "rest");
  EXPECT_EQ(status["calibrated_cameras"], 8);
  EXPECT_GT(status["frame"].get<int>(), 0);
}

// The calibration run inside the engine: a blank session on the default scene
// with the wand as calibration tracker captures the waving wand at 120 Hz, and
// the solver runs beside the clock.
class EngineCalibration : public ::testing::Test {
 protected:
  void SetUp() override {
    SimOptions options;
    options.scene_file = zortest::DataPath("scenes/default.json");
    engine_ = MakeEngine(options);
    ASSERT_TRUE(engine_);
    engine_->SessionOpened(kCalib);
    ASSERT_EQ(engine_->SetInteger(kCalib, ZOR_CALIB_LOAD_EXISTING, 0), ZOR_NO_ERROR);
    ASSERT_NO_FATAL_FAILURE(AddTracker(*engine_, 1, ZOR_CALIB_TRACKER, engine_->scene().wand.leds));
    ASSERT_EQ(engine_->TrackerOp(kCalib, 1, ZOR_ON), ZOR_NO_ERROR);
  }

  void Capture(int frames) {
    ASSERT_EQ(engine_->TrackerOp(kCalib, 1, ZOR_CALIB_CAPTURE_START), ZOR_NO_ERROR);
    Tick(frames);
    ASSERT_EQ(engine_->TrackerOp(kCalib, 1, ZOR_CALIB_CAPTURE_STOP), ZOR_NO_ERROR);
  }

  void Tick(int frames) {
    FrameData out;
    out.want_images = out.want_detectors = false;
    for (int i = 0; i < frames; ++i, ++frame_) engine_->Step(frame_, 1.0 / 120, frame_ * 8333, out);
  }

  std::vector<std::string> Messages() {
    std::vector<std::string> all;
    for (std::string m; engine_->GetString(kCalib, ZOR_CALIB_MESSAGE, m) == 0 && !m.empty();)
      all.push_back(m);
    return all;
  }

  // Keeps the clock going while the solver works.
  bool TickUntilDone(double seconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (engine_->Calibrating()) {
      if (std::chrono::steady_clock::now() > end) return false;
      Tick(1);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
  }

  std::unique_ptr<SimEngine> engine_;
  int frame_ = 1;
};

TEST_F(EngineCalibration, RunsBesideTheClockAndInstallsCamerasThatAgreeWithTheTruth) {
  // 15 s of waving: the wand has been through most of the volume.
  Capture(1800);
  ASSERT_EQ(CalibratedCount(*engine_), 0);
  ASSERT_EQ(engine_->TrackerOpi(kCalib, 1, ZOR_CALIB_RUN, 400), ZOR_NO_ERROR);
  // One run at a time; the capture it reads may not change meanwhile.
  EXPECT_EQ(engine_->TrackerOpi(kCalib, 1, ZOR_CALIB_RUN, 400), ZOR_INVALID_OPERATION);
  EXPECT_EQ(engine_->TrackerOp(kCalib, 1, ZOR_CALIB_CAPTURE_START), ZOR_INVALID_OPERATION);
  EXPECT_EQ(engine_->TrackerOp(kCalib, 1, ZOR_CALIB_CAPTURE_RESET), ZOR_INVALID_OPERATION);
  // The last pass is told only once its cameras are in place: a client saves on it.
  std::vector<std::string> messages;
  int calibrated_when_told = -1;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(120);
  while (calibrated_when_told < 0 && std::chrono::steady_clock::now() < end) {
    Tick(1);
    for (const std::string& m : Messages()) {
      messages.push_back(m);
      if (m == "pass 4 success.") calibrated_when_told = CalibratedCount(*engine_);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_EQ(calibrated_when_told, 8);
  ASSERT_TRUE(TickUntilDone(120));
  // With the lens refined, the final error is close to the pixel noise.
  for (const std::string& m : Messages()) messages.push_back(m);
  ASSERT_NO_FATAL_FAILURE(zortest::ExpectPassMessages(messages, 0.2f));

  std::vector<Extrinsics> solved, truth;
  for (const ZORCamera& c : engine_->Cameras()) {
    ASSERT_GT(c.cond, 0);
    solved.push_back(FromReportedPose(Eigen::Vector3d(c.pose[0], c.pose[1], c.pose[2]),
                                      Eigen::Quaterniond(c.pose[3], c.pose[4], c.pose[5], c.pose[6])));
  }
  for (const SceneCamera& c : engine_->scene().cameras) truth.push_back(c.pose);
  ASSERT_EQ(solved.size(), 8u);
  const PoseErrors e = CompareCameraPoses(solved, truth, std::vector<bool>(truth.size(), true));
  EXPECT_LT(e.position_max_mm, 1.0) << e.position_rms_mm;
  EXPECT_LT(e.rotation_max_deg, 0.02) << e.rotation_rms_deg;

  // The run's own figures: each camera's uncertainty covers its true error
  // (after the best rigid fit to the truth) within three sigma for most cameras.
  std::vector<float> floats;
  ASSERT_EQ(engine_->GetFloats(kCalib, ZOR_CALIB_RESULT, floats), ZOR_NO_ERROR);
  zorsock::wire::ResultReply result;
  ASSERT_TRUE(zorsock::wire::DecodeResult(floats, &result));
  EXPECT_EQ(result.summary.run, 1);
  EXPECT_NEAR(result.summary.wand_length_mm, 900, 1.0);
  EXPECT_GT(result.summary.wand_length_std_mm, 0);
  EXPECT_LT(result.summary.wand_length_std_mm, 0.6);
  EXPECT_TRUE(result.summary.grade == ZOR_GRADE_EXCELLENT || result.summary.grade == ZOR_GRADE_GOOD)
      << result.summary.grade;
  ASSERT_EQ(result.cameras.size(), 8u);
  int covered = 0;
  for (const ZORCameraResult& c : result.cameras) {
    EXPECT_EQ(c.calibrated, 1);
    EXPECT_GT(c.samples, 1000);
    EXPECT_LT(c.rms_px, 0.2);
    EXPECT_GT(c.position_mm, 0);
    covered += e.position_mm[c.camera] <= 3 * c.position_mm;
    std::printf("camera %d: rms %.3f px, sigma %.3f mm, true error %.3f mm\n", c.camera + 1, c.rms_px,
                c.position_mm, e.position_mm[c.camera]);
  }
  std::printf("wand %.2f mm +- %.3f mm, grade %d\n", result.summary.wand_length_mm,
              result.summary.wand_length_std_mm, result.summary.grade);
  EXPECT_GE(covered, 6);

  // The solve outlives its session until a blank session replaces it.
  engine_->SessionClosed(kCalib);
  EXPECT_EQ(CalibratedCount(*engine_), 8);
  engine_->SessionOpened(kCalib);
  ASSERT_EQ(engine_->SetInteger(kCalib, ZOR_CALIB_LOAD_EXISTING, 1), ZOR_NO_ERROR);
  EXPECT_EQ(CalibratedCount(*engine_), 8);
  ASSERT_EQ(engine_->SetInteger(kCalib, ZOR_CALIB_LOAD_EXISTING, 0), ZOR_NO_ERROR);
  EXPECT_EQ(CalibratedCount(*engine_), 0);
}

TEST_F(EngineCalibration, ClosingTheSessionCancelsItsRun) {
  Capture(600);
  ASSERT_EQ(engine_->TrackerOpi(kCalib, 1, ZOR_CALIB_RUN, 0), ZOR_NO_ERROR);
  engine_->SessionClosed(kCalib);
  ASSERT_TRUE(TickUntilDone(60));
  EXPECT_EQ(CalibratedCount(*engine_), 0);
  // A new session finds the engine ready and the old capture gone.
  engine_->SessionOpened(kCalib);
  ASSERT_EQ(engine_->TrackerOpi(kCalib, 1, ZOR_CALIB_RUN, 0), ZOR_NO_ERROR);
  EXPECT_EQ(Messages(), std::vector<std::string>{"pass 1 failed. no wand data captured"});
}

TEST_F(EngineCalibration, EngineDestroyedMidRun) {
  Capture(600);
  ASSERT_EQ(engine_->TrackerOpi(kCalib, 1, ZOR_CALIB_RUN, 0), ZOR_NO_ERROR);
  Tick(10);
  engine_.reset();  // cancels and waits; nothing left running to crash
}

// Requests arrive on another thread than the frame clock's.
TEST(SimEngine, RequestsWhileSteppingAreSafe) {
  auto engine = Calibrated();
  const Scene& scene = engine->scene();
  std::atomic<bool> done{false};
  std::thread clock([&] {
    FrameData out;
    for (int f = 1; !done; ++f) engine->Step(f, 0.002, f * 2000, out);
  });
  engine->SessionOpened(kCalib);
  for (int round = 0; round < 30; ++round) {
    AddTracker(*engine, 0, ZOR_POINT_TRACKER, AllLeds(scene));
    AddTracker(*engine, 1, ZOR_CALIB_TRACKER, scene.wand.leds);
    engine->TrackerOp(kNormal, 0, ZOR_ON);
    engine->TrackerOp(kCalib, 1, ZOR_ON);
    engine->TrackerOp(kCalib, 1, ZOR_CALIB_CAPTURE_START);
    engine->SetInteger(kCalib, ZOR_CALIB_LOAD_EXISTING, round % 2);
    engine->SetFloats(kCalib, ZOR_GLOBAL_TRANSFORM, {float(round), 0, 0, 1, 0, 0, 0});
    EXPECT_EQ(engine->Cameras().size(), scene.cameras.size());
    Control(*engine, {{"cmd", "led"}, {"id", round % 21}, {"visible", round % 3 != 0}});
    EXPECT_EQ(Control(*engine, {{"cmd", "truth"}})["ok"], true);
    engine->CalibrationData();
    engine->TrackerOp(kCalib, 1, ZOR_CALIB_CAPTURE_RESET);
    engine->TrackerOp(kNormal, 0, ZOR_TRACKER_DESTROY);
  }
  engine->SessionClosed(kCalib);
  done = true;
  clock.join();
  EXPECT_EQ(CalibratedCount(*engine), 8);
}

}  // namespace
}  // namespace zord
