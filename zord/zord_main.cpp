// zord: the capture server. Simulates the installation, serves zorsock
// clients, answers discovery; SIGTERM or SIGINT end every session cleanly.
#include <signal.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>

#include "zord/server/server.h"
#include "zord/room/sim_engine.h"

int main(int argc, char** argv) {
  zord::ServerOptions server;
  zord::SimOptions sim;
  CLI::App app{"zord: capture server of the simulated installation"};
  app.add_option("--listen", server.listen, "address to listen on")->capture_default_str();
  app.add_option("--port", server.port, "TCP port for clients")->capture_default_str();
  app.add_option("--discovery-port", server.discovery_port, "UDP discovery port (0: off)")
      ->capture_default_str();
  app.add_option("--name", server.name, "display name in discovery (default: the host name)");
  app.add_option("--frequency", server.frequency, "frame rate, 30..960 Hz")->capture_default_str();
  app.add_option("--pace", server.pace,
                 "step the frames this many times faster than the frame rate (tests), 1..64")
      ->capture_default_str();
  app.add_option("--scene", sim.scene_file, "scene file (default: the built-in scene)");
  app.add_option("--state", sim.state_file, "file that keeps the saved calibration");
  app.add_option("--calibration", sim.calibration_file, "start from this calibration file");
  app.add_option("--truth-out", sim.truth_out, "write the simulation's truth here at start");
  app.add_option("--seed", sim.seed, "seed of the simulated noise")->capture_default_str();
  app.add_option("--noise", sim.noise_px, "pixel noise sigma (default: the scene's)");
  std::string operator_mode = "scene";
  app.add_option("--operator", operator_mode,
                 "the wand's motion: as the scene says, or following the clients' work")
      ->check(CLI::IsMember({"scene", "follow"}))
      ->capture_default_str();
  app.add_option("--max-sessions", server.max_sessions, "connections served at once")
      ->capture_default_str();
  app.add_option("--control-token", server.control_token,
                 "accept operator control from other machines with this token");
  app.add_flag("--verbose", server.verbose, "log sessions and discovery queries");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const int code = app.exit(e);
    return code == 0 ? 0 : 1;
  }

  sim.follow = operator_mode == "follow";

  std::string why;
  if (!server.Check(&why) || !sim.Check(&why)) {
    std::fprintf(stderr, "zord: %s\n", why.c_str());
    return 1;
  }

  // Signals are taken by this thread alone (sigwait below), so block them
  // before any other thread starts.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  signal(SIGPIPE, SIG_IGN);

  std::unique_ptr<zord::Engine> engine = zord::CreateSimEngine(sim, &why);
  if (!engine) {
    std::fprintf(stderr, "zord: %s\n", why.c_str());
    return 1;
  }
  zord::Server zord_server(*engine, server);
  if (!zord_server.Start(&why)) {
    std::fprintf(stderr, "zord: %s\n", why.c_str());
    return 1;
  }
  std::printf("zord: %s\n", zord_server.description().c_str());
  if (zord_server.discovery_port() != 0)
    std::printf("zord: discovery on UDP port %d\n", zord_server.discovery_port());
  std::printf("zord: listening on %s\n", zord_server.endpoint().c_str());
  std::fflush(stdout);

  int received = 0;
  sigwait(&signals, &received);
  std::printf("zord: %s, finishing\n", received == SIGINT ? "interrupted" : "terminated");
  std::fflush(stdout);
  zord_server.Stop();
  return 0;
}
