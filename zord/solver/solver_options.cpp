#include "zord/solver/solver_options.h"

#include <cmath>

namespace zord {

std::string SolverOptions::Check() const {
  auto positive = [](double x) { return std::isfinite(x) && x > 0; };
  if (quality < 0) return "quality must be 0 (every frame) or a positive frame count";
  if (!positive(robust_loss_px)) return "robust_loss_px must be positive";
  if (!positive(outlier_threshold_px)) return "outlier_threshold_px must be positive";
  if (!positive(final_outlier_threshold_px))
    return "final_outlier_threshold_px must be positive";
  if (!positive(outlier_sigmas)) return "outlier_sigmas must be positive";
  if (min_camera_frames < 2) return "min_camera_frames must be at least 2";
  if (!(min_image_spread >= 0 && min_image_spread < 0.5))
    return "min_image_spread must be in [0, 0.5)";
  if (min_shared_frames < 2) return "min_shared_frames must be at least 2";
  if (max_pair_samples < 16) return "max_pair_samples must be at least 16";
  if (!positive(essential_threshold_px)) return "essential_threshold_px must be positive";
  if (!(max_camera_rms_ratio > 1 && std::isfinite(max_camera_rms_ratio)))
    return "max_camera_rms_ratio must be above 1";
  if (!positive(lens_prior.focal) || !positive(lens_prior.aspect) ||
      !positive(lens_prior.centre_px) || !positive(lens_prior.k1))
    return "lens_prior values must be positive";
  if (!(max_lens_inflation >= 1 && std::isfinite(max_lens_inflation)))
    return "max_lens_inflation must be at least 1";
  if (!positive(max_pose_std_mm)) return "max_pose_std_mm must be positive";
  if (max_lens_frames < 100) return "max_lens_frames must be at least 100";
  if (max_iterations < 1) return "max_iterations must be at least 1";
  if (num_threads < 1) return "num_threads must be at least 1";
  return {};
}

}  // namespace zord
