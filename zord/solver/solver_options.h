// Settings of one wand calibration run.
#pragma once

#include <atomic>
#include <string>

#include "zord/solver/pose_uncertainty.h"

namespace zord {

struct SolverOptions {
  // How many captured wand frames to use, spread evenly over the capture
  // (the client's 100, 200, 400, 800, 1200); 0 uses every frame.
  int quality = 0;
  // Final pass also refines focal length (aspect kept), principal point and
  // k1 of the cameras whose data supports it, and k2 and the tangential terms
  // of those whose samples reach far enough into the image's corners.
  bool refine_intrinsics = false;
  // With refine_intrinsics: fy is refined on its own too (cameras whose pixel
  // aspect ratio is not known exactly).
  bool refine_aspect = false;

  // Huber loss scale of the robust bundle adjustment, pixels.
  double robust_loss_px = 1.0;
  // A sample is an outlier when its reprojection error exceeds this many
  // pixels and also `outlier_sigmas` times the robust spread of all errors
  // (so that a badly known lens does not throw away good data).
  double outlier_threshold_px = 2.0;
  double outlier_sigmas = 5.0;
  // The same in the final pass, once the lens model explains the data down to
  // the noise: a blob moved by half a pixel (partly hidden by an edge, merged
  // with a neighbour) is then as wrong as a misread one.
  double final_outlier_threshold_px = 0.5;

  // Coverage each camera needs, else it is refused by name.
  int min_camera_frames = 10;      // wand frames in which it sees >= 2 LEDs
  double min_image_spread = 0.03;  // std of its samples across their narrowest
                                   // direction, as a fraction of the image height
  // Frames two cameras must share to be linked in the camera graph.
  int min_shared_frames = 10;
  // Largest number of correspondences used for one essential matrix.
  int max_pair_samples = 1500;
  // RANSAC threshold of the essential matrix, pixels.
  double essential_threshold_px = 1.5;
  // A camera whose own reprojection RMS exceeds this factor times that of the
  // median camera is refused after the final pass.
  double max_camera_rms_ratio = 2.5;

  // What is known of the lenses before calibration, for judging poses.
  LensPrior lens_prior;
  // A camera's lens is held at the nominal values when freeing it would make
  // the pose this many times less certain (pose_uncertainty.h); a camera
  // whose pose stays uncertain by more than `max_pose_std_mm` (one sigma) is
  // refused by name.
  double max_lens_inflation = 10;
  double max_pose_std_mm = 1.5;
  // With refine_intrinsics, cameras and lenses are adjusted on at most this
  // many frames spread over the capture (more add time, not accuracy); the
  // wand poses of the other frames are then fitted to them.
  int max_lens_frames = 2400;

  // Leave cameras with too little coverage uncalibrated instead of failing.
  bool allow_uncalibrated_cameras = false;

  int max_iterations = 100;  // per bundle adjustment
  int num_threads = 2;
  // Set from another thread to stop the solve at the next check.
  const std::atomic<bool>* cancel = nullptr;

  bool Cancelled() const { return cancel != nullptr && cancel->load(std::memory_order_relaxed); }
  // Empty when the options are usable, else what is wrong with them.
  std::string Check() const;
};

}  // namespace zord
