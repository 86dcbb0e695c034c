// Streaming from a real zord at its top rate, as the desktop client receives
// it: the bench scene (32 cameras, 512 LEDs, 16 rigid bodies) tracked as one
// point tracker holding every LED and one rigid tracker per body, fetched by
// the client's pump (up to 48 frames every 2 ms). Prints the frames the server
// made and the client received, frames lost, the client's CPU time per frame
// (both of its threads) and the latency from the server's frame clock to the
// moment the pump hands the frame on.
//   stream_bench [--seconds 10] [--hz 960] [--scene data/scenes/bench.json]
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <thread>
#include <vector>

#include "testing/zord_process.h"
#include "zord/server/server_test_support.h"

namespace {

using Clock = std::chrono::steady_clock;

double CpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  auto seconds = [](const timeval& t) { return t.tv_sec + t.tv_usec * 1e-6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

int64_t SteadyMicroseconds() {
  return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now().time_since_epoch())
      .count();
}

bool Check(int result, const char* what) {
  if (result > 0) return true;
  std::cerr << "stream_bench: " << what << " failed (error " << zorGetError() << ")\n";
  return false;
}

// Every LED of the scene in point tracker 0, each body as rigid tracker 10 + b.
bool CreateTrackers(const nlohmann::json& scene, int* points) {
  std::vector<int> ids;
  auto add_leds = [&ids](const nlohmann::json& leds) {
    for (const auto& led : leds) ids.push_back(led.at(0).get<int>());
  };
  if (scene.contains("wand")) add_leds(scene["wand"]["leds"]);
  if (scene.contains("align")) add_leds(scene["align"]["leds"]);
  int body_id = 10;
  for (const auto& body : scene.value("bodies", nlohmann::json::array())) {
    add_leds(body["leds"]);
    if (!Check(zorTrackeri(body_id, ZOR_TRACKER_CREATE, ZOR_RIGID_TRACKER), "rigid tracker")) {
      return false;
    }
    int index = 0;
    for (const auto& led : body["leds"]) {
      const int id = led.at(0).get<int>();
      const float p[3] = {led.at(1).get<float>(), led.at(2).get<float>(), led.at(3).get<float>()};
      const int marker = (body_id << 12) | index++;
      if (!Check(zorMarkeriv(marker, ZOR_MARKER_LED, &id), "rigid LED") ||
          !Check(zorMarkerfv(marker, ZOR_MARKER_POSITION, p), "rigid position")) {
        return false;
      }
    }
    if (!Check(zorTracker(body_id++, ZOR_ON), "rigid on")) return false;
  }
  if (scene.contains("loose_fill")) {
    const int first = scene["loose_fill"]["first_id"];
    const int count = scene["loose_fill"]["count"];
    for (int i = 0; i < count; ++i) ids.push_back(first + i);
  }
  if (!Check(zorTrackeri(0, ZOR_TRACKER_CREATE, ZOR_POINT_TRACKER), "point tracker")) return false;
  for (size_t i = 0; i < ids.size(); ++i) {
    if (!Check(zorMarkeriv(static_cast<int>(i), ZOR_MARKER_LED, &ids[i]), "point LED")) return false;
  }
  *points = static_cast<int>(ids.size());
  return Check(zorTracker(0, ZOR_ON), "point on");
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Streaming benchmark against a real zord"};
  double seconds = 10;
  float hz = 960;
  std::string scene_file = zortest::DataPath("scenes/bench.json");
  app.add_option("--seconds", seconds, "how long to stream")->check(CLI::PositiveNumber);
  app.add_option("--hz", hz, "server frame rate")->check(CLI::PositiveNumber);
  app.add_option("--scene", scene_file, "scene file")->check(CLI::ExistingFile);
  CLI11_PARSE(app, argc, argv);

  nlohmann::json scene;
  try {
    scene = nlohmann::json::parse(std::ifstream(scene_file));
  } catch (const std::exception& e) {
    std::cerr << "stream_bench: " << scene_file << ": " << e.what() << "\n";
    return 1;
  }
  zortest::ZordProcess zord({"--scene", scene_file});
  if (!zord.Start()) {
    std::cerr << "stream_bench: zord: " << zord.error() << "\n";
    return 1;
  }
  if (zorInit(zord.address().c_str(), 0) < 0) {
    std::cerr << "stream_bench: cannot connect (" << zorGetError() << ")\n";
    return 1;
  }
  int points = 0;
  if (!CreateTrackers(scene, &points) || !Check(zorSetFloat(ZOR_FREQUENCY, hz), "frequency") ||
      !Check(zorSetInteger(ZOR_STREAMING, ZOR_ON), "streaming")) {
    return 1;
  }
  // Let the server settle on the new trackers before measuring.
  zortest::FrameFetcher f;
  const auto settle = Clock::now() + std::chrono::milliseconds(500);
  while (Clock::now() < settle) {
    while (f.Fetch() == 1) {
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }

  int delivered = 0, lost = 0, markers = 0, rigids = 0;
  std::vector<double> latency_ms;
  const int32_t first = f.last_frame;
  const double cpu0 = CpuSeconds();
  const auto start = Clock::now();
  const auto end = start + std::chrono::duration<double>(seconds);
  while (Clock::now() < end) {
    for (int i = 0; i < 48; ++i) {
      int time[2] = {0, 0};
      zorGetIntegerv(ZOR_FRAME_TIME, time);
      const int32_t previous = f.last_frame;
      if (f.Fetch() != 1) break;
      const int64_t made = static_cast<int64_t>(static_cast<uint32_t>(time[0])) |
                           (static_cast<int64_t>(static_cast<uint32_t>(time[1])) << 32);
      latency_ms.push_back((SteadyMicroseconds() - made) / 1000.0);
      lost += std::max(0, f.last_frame - previous - 1);
      ++delivered;
      markers += static_cast<int>(f.markers.size());
      rigids += static_cast<int>(f.rigids.size());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  const double wall = std::chrono::duration<double>(Clock::now() - start).count();
  const double cpu = CpuSeconds() - cpu0;
  int dropped = 0;
  zorGetIntegerv(ZOR_FRAMES_DROPPED, &dropped);
  const int errors = static_cast<int>(zortest::TakeErrors().size());
  zorDone();

  std::sort(latency_ms.begin(), latency_ms.end());
  auto percentile = [&latency_ms](double p) {
    if (latency_ms.empty()) return 0.0;
    return latency_ms[std::min(latency_ms.size() - 1, static_cast<size_t>(p * latency_ms.size()))];
  };
  const int made = f.last_frame - first;
  std::printf("scene %s: %d tracked LEDs, %zu rigid bodies, %.0f Hz for %.1f s\n",
              scene_file.c_str(), points, scene.value("bodies", nlohmann::json::array()).size(),
              hz, wall);
  std::printf("frames: server %d, client %d, lost %d, dropped by the library %d, errors %d\n",
              made, delivered, lost, dropped, errors);
  std::printf("per frame: %.1f markers, %.1f rigids seen\n", delivered ? double(markers) / delivered : 0,
              delivered ? double(rigids) / delivered : 0);
  std::printf("client CPU: %.1f us per frame (%.1f%% of one core)\n",
              delivered ? cpu / delivered * 1e6 : 0, cpu / wall * 100);
  std::printf("latency (server frame clock to delivery): median %.2f ms, p99 %.2f ms, max %.2f ms\n",
              percentile(0.5), percentile(0.99), percentile(1.0));
  return lost == 0 && errors == 0 ? 0 : 2;
}
