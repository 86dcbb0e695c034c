// Wand calibration benchmark: simulates captures with known truth, runs the
// solver and prints accuracy against the truth and the noise floor, the time
// of each pass and the peak memory. Each case runs in its own process so that
// the peak memory is that case's own.
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
  int weak_camera = -1;  // sees the wand only in a strip at the top of its image
};

const std::vector<Case> kCases = {
    {"c16_f2000_s0.10", 16, 2000, 0.10},
    {"c16_f2000_s0.05", 16, 2000, 0.05},
    {"c16_f2000_s0.30", 16, 2000, 0.30},
    {"c16_f2000_s0.10_lens", 16, 2000, 0.10, Lens::kErrors},
    {"c32_f10000_s0.10", 32, 10000, 0.10},
    {"c12_f9600_s0.10_lens", 12, 9600, 0.10, Lens::kErrors},
    {"c16_f2000_s0.10_mislabel", 16, 2000, 0.10, Lens::kFamiliar, 0.01},
    {"c16_f2000_s0.10_weak", 16, 2000, 0.10, Lens::kFamiliar, 0, 3},
};

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
  sim.weak_strip = 0.15;  // wide enough to pass the spread check: the pose judgement decides
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
  const zord::SyntheticCapture capture = zord::MakeSyntheticCapture(sim);

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

  std::printf("  samples %d, outliers %d (corrupted on purpose %d), parameters %d\n",
              result.samples_used, result.outliers, capture.corrupted, result.parameters);
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
