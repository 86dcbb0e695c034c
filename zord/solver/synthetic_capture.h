// Synthetic wand captures with known truth, for the solver's tests and its
// benchmark: cameras on stands around a room aimed into the capture volume
// (world in mm, Y up, floor at y = 0), a straight 8-LED wand waved through the
// volume with widely varying orientation, Gaussian pixel noise, drop-outs and
// outliers.
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <vector>

#include "zord/solver/camera_model.h"
#include "zord/solver/solver_result.h"
#include "zord/solver/wand_calibrator.h"

namespace zord {

struct SyntheticOptions {
  int cameras = 8;
  int frames = 400;
  double noise_px = 0.1;        // Gaussian sigma per coordinate
  double dropout = 0;           // probability that a detection is lost
  double outlier_fraction = 0;  // probability that a detection is moved 5-60 px
  double mislabel_fraction = 0; // probability that a detection carries another LED's id
  // A weak camera: it sees the wand only in a horizontal strip of its image,
  // `weak_strip` of its height, centred 70 % down (as if the rest were
  // hidden), -1 for none.
  int weak_camera = -1;
  double weak_strip = 0.1;
  uint32_t seed = 1;

  Eigen::Vector3d room{6000, 3000, 6000};        // x, height, z; centred on x = z = 0
  Eigen::Vector3d volume_centre{0, 1200, 0};     // where the wand is waved
  Eigen::Vector3d volume_half{1400, 600, 1400};  // half extent of the wand's path

  Intrinsics lens;                // nominal lens of every camera
  double focal_error = 0;         // true focal = nominal * (1 +- focal_error)
  double principal_error_px = 0;  // true principal point off by this (random direction)
  double true_k1 = 0;             // true radial term (nominal is lens.k1)
  double true_k2 = 0, true_p1 = 0, true_p2 = 0;  // true further terms (nominal: lens's)

  // Empty when usable, else what is wrong.
  std::string Check() const;
};

struct SyntheticCapture {
  CalibrationInput input;  // nominal lenses, detections, wand
  std::vector<Intrinsics> true_lenses;
  std::vector<Extrinsics> true_poses;
  std::vector<WandPose> true_wand;  // per frame of input.frames
  int corrupted = 0;                // detections moved or mislabelled on purpose
};

SyntheticCapture MakeSyntheticCapture(const SyntheticOptions& options);

// The test wand: 8 LEDs along x, unevenly spaced, 900 mm end to end.
std::vector<WandLed> StandardWand();

}  // namespace zord
