// Cost of one simulated frame of zord: detection of every LED in every camera,
// triangulation, rigid fits and the records a session streams. The streaming
// set-up runs 32 cameras x 512 LEDs at 960 Hz, so a step must stay well under
// a millisecond.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <iostream>
#include <string>

#include "zord/room/sim_engine.h"

namespace {

std::string ScenePath(const char* name) {
  const char* dir = std::getenv("ZOR_DATA_DIR");
  return std::string(dir ? dir : "data") + "/scenes/" + name;
}

std::unique_ptr<zord::SimEngine> MakeEngine(const zord::SimOptions& options) {
  std::string error;
  auto engine = zord::SimEngine::Create(options, &error);
  if (!engine) {
    std::cerr << "sim_step_bench: " << error << " (set ZOR_DATA_DIR)\n";
    std::exit(1);
  }
  return engine;
}

// An engine tracking every LED of the scene as points and every body as a rigid.
std::unique_ptr<zord::SimEngine> MakeTrackedEngine(const std::string& scene_file, bool watch = true) {
  zord::SimOptions options;
  options.scene_file = scene_file;
  options.camera_watch = watch;
  auto engine = MakeEngine(options);
  const zord::Scene& scene = engine->scene();
  const zord::ClientContext who{1, 0};
  engine->TrackerOpi(who, 0, ZOR_TRACKER_CREATE, ZOR_POINT_TRACKER);
  for (int slot = 0; slot < scene.LedCount(); ++slot) {
    engine->MarkerInts(who, slot, ZOR_MARKER_LED, {scene.LedId(slot)});
  }
  engine->TrackerOp(who, 0, ZOR_ON);
  for (size_t b = 0; b < scene.bodies.size(); ++b) {
    const int id = 10 + static_cast<int>(b);
    engine->TrackerOpi(who, id, ZOR_TRACKER_CREATE, ZOR_RIGID_TRACKER);
    const auto& leds = scene.bodies[b].leds;
    for (size_t i = 0; i < leds.size(); ++i) {
      const int marker = (id << 12) | static_cast<int>(i);
      engine->MarkerInts(who, marker, ZOR_MARKER_LED, {leds[i].id});
      const Eigen::Vector3f p = leds[i].local.cast<float>();
      engine->MarkerFloats(who, marker, ZOR_MARKER_POSITION, {p.x(), p.y(), p.z()});
    }
    engine->TrackerOp(who, id, ZOR_ON);
  }
  return engine;
}

void RunSteps(benchmark::State& state, const char* scene, bool images, bool watch = true) {
  auto engine = MakeTrackedEngine(ScenePath(scene), watch);
  zord::FrameData frame;
  frame.want_images = images;
  frame.want_detectors = true;
  int32_t number = 0;
  for (auto _ : state) {
    ++number;
    engine->Step(number, 1.0 / 960, number * 1042, frame);
    benchmark::DoNotOptimize(frame.markers.data());
  }
  state.counters["markers"] = static_cast<double>(frame.markers.size());
  state.counters["rigids"] = static_cast<double>(frame.rigids.size());
  state.counters["images"] = static_cast<double>(frame.images.size());
}

// 32 cameras, 512 LEDs, 16 rigid bodies: the streaming benchmark's server.
void BM_Step32Cameras512Leds(benchmark::State& state) { RunSteps(state, "bench.json", false); }
BENCHMARK(BM_Step32Cameras512Leds)->Unit(benchmark::kMicrosecond);

// The same with the watch for knocked cameras off: what the watch costs.
void BM_Step32Cameras512LedsNoWatch(benchmark::State& state) {
  RunSteps(state, "bench.json", false, false);
}
BENCHMARK(BM_Step32Cameras512LedsNoWatch)->Unit(benchmark::kMicrosecond);

void BM_Step32Cameras512LedsWithImages(benchmark::State& state) {
  RunSteps(state, "bench.json", true);
}
BENCHMARK(BM_Step32Cameras512LedsWithImages)->Unit(benchmark::kMicrosecond);

// A wand capture on the 32 cameras of the streaming set-up, with and without
// the live coverage counts (what a calibration client polls while capturing).
void RunCapture(benchmark::State& state, bool tally) {
  zord::SimOptions options;
  options.scene_file = ScenePath("bench.json");
  options.capture_tally = tally;
  auto engine = MakeEngine(options);
  const zord::ClientContext who{1, ZOR_FLAG_CALIBRATE};
  engine->SessionOpened(who);
  engine->SetInteger(who, ZOR_CALIB_LOAD_EXISTING, 0);
  engine->TrackerOpi(who, 1, ZOR_TRACKER_CREATE, ZOR_CALIB_TRACKER);
  const auto& leds = engine->scene().wand.leds;
  for (size_t i = 0; i < leds.size(); ++i) {
    const int marker = (1 << 12) | static_cast<int>(i);
    engine->MarkerInts(who, marker, ZOR_MARKER_LED, {leds[i].id});
    const Eigen::Vector3f p = leds[i].local.cast<float>();
    engine->MarkerFloats(who, marker, ZOR_MARKER_POSITION, {p.x(), p.y(), p.z()});
  }
  engine->TrackerOp(who, 1, ZOR_ON);
  engine->TrackerOp(who, 1, ZOR_CALIB_CAPTURE_START);
  zord::FrameData frame;
  frame.want_images = frame.want_detectors = false;
  int32_t number = 0;
  for (auto _ : state) {
    ++number;
    engine->Step(number, 1.0 / 960, number * 1042, frame);
    benchmark::DoNotOptimize(frame.wand_capture);
  }
  state.counters["captured"] = static_cast<double>(engine->CalibrationData().frames.size());
}

void BM_Capture32Cameras(benchmark::State& state) { RunCapture(state, false); }
BENCHMARK(BM_Capture32Cameras)->Unit(benchmark::kMicrosecond)->Iterations(20000);

void BM_Capture32CamerasLiveCounts(benchmark::State& state) { RunCapture(state, true); }
BENCHMARK(BM_Capture32CamerasLiveCounts)->Unit(benchmark::kMicrosecond)->Iterations(20000);

// The default room: 8 cameras, 21 LEDs.
void BM_StepDefaultScene(benchmark::State& state) { RunSteps(state, "calibrated.json", true); }
BENCHMARK(BM_StepDefaultScene)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
