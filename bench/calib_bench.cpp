// Wand calibration benchmark: simulates captures with known truth, runs the
// solver and prints accuracy against the truth and the noise floor, the time
// of each pass and the peak memory. Each case runs in its own process so that
// the peak memory is that case's own. The room cases detect the wand with the
// server's own detector and its effects (occlusion, reflections, misread ids,
// merged blobs); every case judges the solver's rejections against the truth.
//
//   calib_bench            all cases
//   calib_bench <name>...  only the named cases
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "zord/room/detect.h"
#include "zord/solver/calib_accuracy.h"
#include "zord/solver/synthetic_capture.h"
#include "zord/solver/wand_calibrator.h"

namespace {

enum class Lens {
  kExact,    // the nominal lens is the true one
  kErrors,   // focal 1% off, principal point 4 px off, k1 -0.05; refined
  kFamiliar  // k1 -0.04 known, truth within a realistic data-sheet spread; refined
};

struct Case {
  std::string name;
  int cameras;
  int frames;
  double noise_px;
  Lens lens = Lens::kExact;
  double mislabel = 0;   // fraction of detections with another LED's id
  int weak_camera = -1;  // sees the wand only in a strip of its image
  double weak_strip = 0.15;
  // Detected by the room's detector with these effects (else: synthetic detections).
  bool room = false;
  zord::SceneEffects effects = {};
};

// A glass wall along one side of the room.
const zord::ScenePlane kWallMirror{{-2990, 0, 0}, {1, 0, 0}, 1};

zord::SceneEffects Occlusion() {
  zord::SceneEffects e;
  e.operator_body = e.stands = true;
  return e;
}
zord::SceneEffects Mirror(double rate) {
  zord::SceneEffects e;
  e.mirrors = {kWallMirror};
  e.mirrors[0].rate = rate;
  return e;
}
zord::SceneEffects Mislabels() {
  zord::SceneEffects e;
  e.mislabel_rate = 0.01;
  return e;
}
zord::SceneEffects Merges() {
  zord::SceneEffects e;
  e.merge_px = 3;
  return e;
}
zord::SceneEffects Mix() {
  zord::SceneEffects e = Mirror(0.5);
  e.operator_body = e.stands = true;
  e.mislabel_rate = 0.01;
  e.merge_px = 3;
  return e;
}

const std::vector<Case> kCases = {
    {"c16_f2000_s0.10", 16, 2000, 0.10},
    {"c16_f2000_s0.05", 16, 2000, 0.05},
    {"c16_f2000_s0.30", 16, 2000, 0.30},
    {"c16_f2000_s0.10_lens", 16, 2000, 0.10, Lens::kErrors},
    {"c32_f10000_s0.10", 32, 10000, 0.10},
    {"c12_f9600_s0.10_lens", 12, 9600, 0.10, Lens::kErrors},
    {"c16_f2000_s0.10_mislabel", 16, 2000, 0.10, Lens::kFamiliar, 0.01},
    {"c16_f2000_s0.10_weak", 16, 2000, 0.10, Lens::kFamiliar, 0, 3},
    {"c16_f2000_s0.10_weak10", 16, 2000, 0.10, Lens::kFamiliar, 0, 3, 0.10},
    {"c16_f2000_s0.10_weak05", 16, 2000, 0.10, Lens::kFamiliar, 0, 3, 0.05},
    {"c16_f2000_s0.10_weak02", 16, 2000, 0.10, Lens::kFamiliar, 0, 3, 0.02},
    {"c16_f2000_s0.10_room", 16, 2000, 0.10, Lens::kExact, 0, -1, 0, true},
    {"c16_f2000_s0.10_occlusion", 16, 2000, 0.10, Lens::kExact, 0, -1, 0, true, Occlusion()},
    {"c16_f2000_s0.10_mirror", 16, 2000, 0.10, Lens::kExact, 0, -1, 0, true, Mirror(1)},
    {"c16_f2000_s0.10_mislabel_room", 16, 2000, 0.10, Lens::kExact, 0, -1, 0, true, Mislabels()},
    {"c16_f2000_s0.10_merge", 16, 2000, 0.10, Lens::kExact, 0, -1, 0, true, Merges()},
    {"c16_f2000_s0.10_mix", 16, 2000, 0.10, Lens::kExact, 0, -1, 0, true, Mix()},
    {"c16_f2000_s0.10_mix_lens", 16, 2000, 0.10, Lens::kFamiliar, 0, -1, 0, true, Mix()},
};

// The capture's frames detected again by the room's detector, with the
// case's effects, from the same cameras, lenses and wand path.
void DetectInRoom(const Case& c, zord::SyntheticCapture* capture) {
  zord::Scene scene;
  scene.led_diameter_mm = 8;
  scene.effects = c.effects;
  for (size_t k = 0; k < capture->true_poses.size(); ++k)
    scene.cameras.push_back({capture->input.cameras[k], capture->true_lenses[k],
                             capture->true_poses[k], capture->true_poses[k]});
  for (const zord::WandLed& led : capture->input.wand) scene.wand.leds.push_back({led.id, led.local});
  std::string why;
  if (!scene.Index(&why)) std::printf("  scene: %s\n", why.c_str());
  zord::Detector detector(scene, 7, c.noise_px, 0);
  std::vector<Eigen::Vector3d> world(scene.LedCount());
  const std::vector<uint8_t> lit(scene.LedCount(), 1);
  for (size_t f = 0; f < capture->input.frames.size(); ++f) {
    const zord::WandPose& pose = capture->true_wand[f];
    for (int slot = 0; slot < scene.LedCount(); ++slot)
      world[slot] = pose.centre + scene.wand.leds[slot].local.x() * pose.direction;
    const Eigen::Vector3d person = zord::OperatorPosition(pose.centre, pose.direction);
    detector.Run(world, lit, &person);
    auto& observations = capture->input.frames[f].observations;
    observations.clear();
    for (const zord::Detection& d : detector.detections())
      observations.push_back({d.camera, scene.LedId(d.slot), d.u, d.v});
  }
}

// How well the solver told bad detections from good: a detection is bad when
// it lies more than 2 px (the outlier threshold before the final pass) from
// where the LED its id names truly images, good within 1 px; counted over the
// frames and cameras of the final adjustment. Blobs 1-2 px off count as
// neither.
struct RejectionScore {
  int bad = 0, bad_found = 0, good = 0, good_rejected = 0;
};

RejectionScore ScoreRejections(const zord::SyntheticCapture& capture,
                               const zord::CalibrationResult& result) {
  RejectionScore score;
  std::vector<char> used(capture.input.frames.size(), 0);
  for (const zord::WandPose& w : result.wand_poses) used[w.frame - capture.input.frames[0].number] = 1;
  std::vector<std::vector<char>> rejected(capture.input.frames.size());
  for (const zord::RejectedDetection& r : result.rejected) {
    auto& flags = rejected[r.frame];
    flags.resize(capture.input.frames[r.frame].observations.size(), 0);
    flags[r.observation] = 1;
  }
  for (size_t f = 0; f < capture.input.frames.size(); ++f) {
    if (!used[f]) continue;
    const zord::WandPose& pose = capture.true_wand[f];
    const auto& observations = capture.input.frames[f].observations;
    for (size_t k = 0; k < observations.size(); ++k) {
      const zord::WandObservation& o = observations[k];
      if (!result.calibrated[o.camera]) continue;
      const Eigen::Vector3d world = pose.centre + capture.input.wand[o.led].local.x() * pose.direction;
      // Projected without the image's bounds: noise can put the blob of an
      // LED just outside the image inside it.
      Eigen::Vector2d uv;
      const bool imaged = zord::Project(capture.true_lenses[o.camera], capture.true_poses[o.camera], world, &uv);
      const double error = imaged ? (uv - Eigen::Vector2d(o.u, o.v)).norm() : 1e9;
      const bool out = k < rejected[f].size() && rejected[f][k];
      if (error > 2) {
        ++score.bad;
        score.bad_found += out;
      } else if (error < 1) {
        ++score.good;
        score.good_rejected += out;
      }
    }
  }
  return score;
}

double Seconds(const timeval& t) {
  return t.tv_sec + t.tv_usec * 1e-6;
}

void RunCase(const Case& c) {
  zord::SyntheticOptions sim;
  sim.cameras = c.cameras;
  sim.frames = c.frames;
  sim.noise_px = c.noise_px;
  sim.seed = 7;
  sim.mislabel_fraction = c.mislabel;
  sim.weak_camera = c.weak_camera;
  sim.weak_strip = c.weak_strip;
  zord::SolverOptions options;
  if (c.lens == Lens::kErrors) {
    sim.focal_error = 0.01;
    sim.principal_error_px = 4;
    sim.true_k1 = -0.05;
    options.refine_intrinsics = true;
  } else if (c.lens == Lens::kFamiliar) {
    sim.lens.k1 = -0.04;
    sim.focal_error = 0.005;
    sim.principal_error_px = 3;
    sim.true_k1 = -0.045;
    options.refine_intrinsics = true;
  }
  zord::SyntheticCapture capture = zord::MakeSyntheticCapture(sim);
  if (c.room) DetectInRoom(c, &capture);

  rusage before{};
  getrusage(RUSAGE_SELF, &before);
  const double setup_cpu = Seconds(before.ru_utime) + Seconds(before.ru_stime);
  const auto start = std::chrono::steady_clock::now();
  const zord::CalibrationResult result = zord::CalibrateWand(capture.input, options);
  const double total =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  rusage after{};
  getrusage(RUSAGE_SELF, &after);
  const double solve_cpu = Seconds(after.ru_utime) + Seconds(after.ru_stime) - setup_cpu;

  std::printf("%s: %d cameras, %d frames, sigma %.2f px%s\n", c.name.c_str(), c.cameras, c.frames,
              c.noise_px, c.lens != Lens::kExact ? ", lens refined" : "");
  for (const std::string& w : result.warnings) std::printf("  %s\n", w.c_str());
  if (c.weak_camera >= 0) {
    const int w = c.weak_camera;
    long seen = 0, all = 0;
    for (const zord::WandFrame& frame : capture.input.frames)
      for (const zord::WandObservation& o : frame.observations) {
        seen += o.camera == w;
        ++all;
      }
    std::printf("  weak camera %d has %.1f %% of the detections of an average other camera\n",
                w + 1, 100.0 * seen * (c.cameras - 1) / std::max(1L, all - seen));
  }
  if (result.status != zord::SolveStatus::kSuccess) {
    for (const auto& pass : result.passes)
      for (const std::string& m : pass.Messages()) std::printf("  %s\n", m.c_str());
    std::printf("  FAILED\n");
    return;
  }
  const double residuals = 2.0 * result.samples_used;
  const double floor = c.noise_px * std::sqrt(1 - result.parameters / residuals);
  const zord::PoseErrors pose =
      zord::CompareCameraPoses(result.extrinsics, capture.true_poses, result.calibrated);
  double solved_mean = 0, true_mean = 0;
  const double solved_std =
      zord::WandLengthStd(capture.input, result.extrinsics, result.intrinsics, &solved_mean);
  const double true_std =
      zord::WandLengthStd(capture.input, capture.true_poses, capture.true_lenses, &true_mean);

  const RejectionScore score = ScoreRejections(capture, result);
  std::printf("  samples %d, outliers %d, repeated %d, parameters %d\n", result.samples_used,
              result.outliers, result.repeated, result.parameters);
  std::printf("  bad detections (> 2 px) %d, found %d (%.2f %%); good (< 1 px) %d, rejected %d (%.3f %%)\n",
              score.bad, score.bad_found, 100.0 * score.bad_found / std::max(1, score.bad),
              score.good, score.good_rejected, 100.0 * score.good_rejected / std::max(1, score.good));
  if (c.weak_camera >= 0) {
    const int w = c.weak_camera;
    if (result.calibrated[w]) {
      std::printf("  weak camera %d: %.3f mm off, lens %s, pose uncertain by %.3f mm\n", w + 1,
                  pose.position_mm[w], result.lens_refined[w] ? "refined" : "held",
                  result.uncertainty[w].position_mm);
    } else {
      std::printf("  weak camera %d refused\n", w + 1);
    }
  }
  std::printf("  rms %.5f px, floor %.5f px, ratio %.4f\n", result.rms_px, floor,
              result.rms_px / floor);
  std::printf("  camera position rms %.4f mm, max %.4f mm; rotation rms %.5f deg, max %.5f deg\n",
              pose.position_rms_mm, pose.position_max_mm, pose.rotation_rms_deg,
              pose.rotation_max_deg);
  std::printf(
      "  wand length std %.4f mm (true cameras %.4f mm, ratio %.3f); mean %.3f mm (true %.3f)\n",
      solved_std, true_std, solved_std / true_std, solved_mean, true_mean);
  std::printf("  pass rms");
  for (const auto& pass : result.passes) std::printf(" %.4f", pass.rms_px);
  std::printf(" px\n  time");
  for (const auto& pass : result.passes) std::printf(" pass%d %.3f s,", pass.pass, pass.seconds);
  std::printf(" total %.3f s\n", total);
  std::printf("  solve cpu %.3f s, peak memory %.1f MB\n", solve_cpu, after.ru_maxrss / 1024.0);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> wanted(argv + 1, argv + argc);
  int failures = 0;
  for (const Case& c : kCases) {
    if (!wanted.empty() && std::find(wanted.begin(), wanted.end(), c.name) == wanted.end())
      continue;
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
      RunCase(c);
      std::fflush(stdout);
      _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    failures += !(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  return failures == 0 ? 0 : 1;
}
