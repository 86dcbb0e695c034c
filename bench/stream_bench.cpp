// Streaming from a real zord at its top rate, as the desktop client receives
// it: the bench scene (32 cameras, 512 LEDs, 16 rigid bodies) tracked as one
// point tracker holding every LED and one rigid tracker per body, fetched by
// the client's pump (up to 48 frames every 2 ms). Prints the frames the server
// made and the client received, frames lost, the client's CPU time per frame
// (both of its threads) and the latency from the server's frame clock to the
// moment the pump hands the frame on. With --report N it prints every N
// seconds how far it got and the resident memory of client and server, so a
// long run (a soak) shows whether either grows.
//   stream_bench [--seconds 10] [--hz 960] [--scene data/scenes/bench.json] [--report 60]
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "bench/server_drops.h"
#include "testing/zord_process.h"
#include "zord/server/server_test_support.h"
#include "zorsock/library.h"

namespace {

using Clock = std::chrono::steady_clock;

double CpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  auto seconds = [](const timeval& t) { return t.tv_sec + t.tv_usec * 1e-6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Resident memory of a process in KiB (VmRSS), -1 when unreadable.
long ResidentKiB(const std::string& pid) {
  std::ifstream status("/proc/" + pid + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return std::atol(line.c_str() + 6);
  }
  return -1;
}

// Latencies in 10 µs bins up to 1 s (and one bin beyond): fixed memory however
// long the run, so the client's own figures do not grow its resident size.
class LatencyHistogram {
 public:
  void Add(double ms) {
    const double bin = std::clamp(ms * 100, 0.0, double(kBins - 1));
    ++bins_[static_cast<size_t>(bin)];
    ++count_;
    max_ = std::max(max_, ms);
  }
  double Percentile(double p) const {
    if (count_ == 0) return 0;
    const auto want = static_cast<int64_t>(p * count_);
    int64_t seen = 0;
    for (size_t i = 0; i < kBins; ++i) {
      seen += bins_[i];
      if (seen > want) return std::min(max_, (i + 1) / 100.0);
    }
    return max_;
  }
  double max() const { return max_; }

 private:
  static constexpr size_t kBins = 100001;
  std::vector<int64_t> bins_ = std::vector<int64_t>(kBins);
  int64_t count_ = 0;
  double max_ = 0;
};

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
  double report = 0;
  app.add_option("--report", report, "seconds between progress and memory lines (0: none)");
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
  LatencyHistogram latency_ms;
  const int32_t first = f.lastFrame;
  const std::string server_pid = std::to_string(zord.pid());
  const long client_rss0 = ResidentKiB("self"), server_rss0 = ResidentKiB(server_pid);
  const double cpu0 = CpuSeconds();
  const auto start = Clock::now();
  const auto end = start + std::chrono::duration<double>(seconds);
  auto next_report = start + std::chrono::duration<double>(report);
  auto print_memory = [&](const char* when) {
    zord.output();  // keeps the server's output pipe drained on long runs
    int library_drops = 0;
    zorGetIntegerv(ZOR_FRAMES_DROPPED, &library_drops);
    std::printf("%s %.0f s: frames %d, lost %d (library %d, server %lld); RSS client %ld KiB, "
                "server %ld KiB\n",
                when, std::chrono::duration<double>(Clock::now() - start).count(), delivered, lost,
                library_drops, ServerDrops(zord.address()), ResidentKiB("self"), ResidentKiB(server_pid));
    std::fflush(stdout);
  };
  std::printf("start: RSS client %ld KiB, server %ld KiB\n", client_rss0, server_rss0);
  int link_error = 0;
  while (Clock::now() < end) {
    if (!zorsock::HasOpenSession()) {  // reported, not waited out
      link_error = zorGetError();
      std::printf("link lost (error 0x%x)\n", link_error);
      break;
    }
    if (report > 0 && Clock::now() >= next_report) {
      print_memory("at");
      next_report += std::chrono::duration<double>(report);
    }
    for (int i = 0; i < 48; ++i) {
      int time[2] = {0, 0};
      zorGetIntegerv(ZOR_FRAME_TIME, time);
      const int32_t previous = f.lastFrame;
      if (f.Fetch() != 1) break;
      const int64_t made = static_cast<int64_t>(static_cast<uint32_t>(time[0])) |
                           (static_cast<int64_t>(static_cast<uint32_t>(time[1])) << 32);
      latency_ms.Add((SteadyMicroseconds() - made) / 1000.0);
      lost += std::max(0, f.lastFrame - previous - 1);
      ++delivered;
      markers += static_cast<int>(f.markers.size());
      rigids += static_cast<int>(f.rigids.size());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  const double wall = std::chrono::duration<double>(Clock::now() - start).count();
  const double cpu = CpuSeconds() - cpu0;
  print_memory("end");
  int dropped = 0;
  zorGetIntegerv(ZOR_FRAMES_DROPPED, &dropped);
  const int errors = static_cast<int>(zortest::TakeErrors().size());
  zorDone();

  const int made = f.lastFrame - first;
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
              latency_ms.Percentile(0.5), latency_ms.Percentile(0.99), latency_ms.max());
  return lost == 0 && errors == 0 && link_error == 0 ? 0 : 2;
}
