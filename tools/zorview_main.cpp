// zorview: a console viewer of a zord server. Connects, defines a point
// tracker over the first LEDs, streams, and prints one line a second: frame
// number, frame rate, markers seen, rigid bodies, calibrated cameras.
#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <thread>
#include <vector>

#include "zorsock/zorsock.h"

namespace {

volatile std::sig_atomic_t g_stop = 0;

void OnSignal(int) { g_stop = 1; }

bool HeadHas(int code) {
  int v = 0;
  return zorGetIntegerv(code, &v) > 0 && v != 0;
}

// Defines tracker 0 as a point tracker over LEDs 0..count-1 and enables it.
bool DefineTracker(int count) {
  zorScale(1.0f);
  zorTrackeri(0, ZOR_TRACKER_CREATE, ZOR_POINT_TRACKER);
  for (int i = 0; i < count; ++i) zorMarkeriv(i, ZOR_MARKER_LED, &i);
  zorTracker(0, ZOR_ON);
  return zorGetStatus() != 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Console viewer of a zord capture server"};
  std::string server = "localhost";
  int leds = 128;
  double seconds = 0;
  app.add_option("-s,--server", server, "server address, host or host:port");
  app.add_option("-n,--leds", leds, "LEDs 0..n-1 are tracked as points")->check(CLI::Range(1, 4096));
  app.add_option("-t,--seconds", seconds, "stop after this many seconds (0: run until Ctrl-C)");
  CLI11_PARSE(app, argc, argv);

  std::signal(SIGINT, OnSignal);
  std::signal(SIGTERM, OnSignal);

  const int ret = zorInit(server.c_str(), 0);
  if (ret < 0) {
    std::fprintf(stderr, "zorview: cannot connect to %s (code %d)\n", server.c_str(), ret);
    return 1;
  }
  char text[ZOR_STRING_MAX];
  if (zorGetString(ZOR_SERVER_NAME, text) > 0) std::printf("connected to %s\n", text);
  if (!DefineTracker(leds)) std::fprintf(stderr, "zorview: tracker set-up failed\n");
  zorScale(1.0f);
  zorSetInteger(ZOR_STREAMING, ZOR_ON);

  std::vector<ZORMarker> markers(4096);
  std::vector<ZORRigid> rigids(1024);
  std::vector<ZORCamera> cameras(256);
  const auto start = std::chrono::steady_clock::now();
  auto next_print = start + std::chrono::seconds(1);
  long frames = 0, seen = 0, tracked = 0;
  int exit_code = 0;
  while (!g_stop) {
    if (const int err = zorGetError(); err != ZOR_NO_ERROR) {
      zorGetString(err, text);
      std::printf("server link ended: %s (0x%x)\n", text, err);
      exit_code = err == ZOR_FINISHED ? 0 : 1;
      break;
    }
    bool got = false;
    if (HeadHas(ZOR_SEND_MARKERS)) {
      const int n = zorGetMarkers(markers.data(), static_cast<int>(markers.size()));
      for (int i = 0; i < n; ++i) seen += markers[i].cond > 0;
      got = true;
    }
    if (HeadHas(ZOR_SEND_RIGIDS)) {
      const int n = zorGetRigids(rigids.data(), static_cast<int>(rigids.size()));
      for (int i = 0; i < n; ++i) tracked += rigids[i].cond > 0;
      got = true;
    }
    frames += got;
    const auto now = std::chrono::steady_clock::now();
    if (now >= next_print) {
      int frame = 0;
      zorGetIntegerv(ZOR_FRAME_NUMBER, &frame);
      const int ncam = zorGetCameras(cameras.data(), static_cast<int>(cameras.size()));
      int calibrated = 0;
      for (int i = 0; i < ncam; ++i) calibrated += cameras[i].cond >= 0;
      std::printf("frame %d  %ld Hz  markers %.1f  rigids %.1f  cameras %d/%d calibrated\n", frame,
                  frames, frames ? double(seen) / frames : 0.0,
                  frames ? double(tracked) / frames : 0.0, calibrated, ncam);
      std::fflush(stdout);
      frames = seen = tracked = 0;
      next_print += std::chrono::seconds(1);
      if (seconds > 0 && now - start >= std::chrono::duration<double>(seconds)) break;
    }
    if (!got) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  zorDone();
  return exit_code;
}
