// What a wand calibration run produces, and the pass-by-pass reports that the
// server forwards to the client as calibration messages.
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <string>
#include <vector>

#include "zord/solver/camera_model.h"
#include "zord/solver/pose_uncertainty.h"

namespace zord {

// The end of one of the four passes.
struct PassReport {
  int pass = 0;  // 1 relative poses, 2 chaining, 3 bundle adjustment, 4 refinement
  bool success = false;
  double rms_px = -1;  // RMS reprojection error after the pass (success only)
  std::string reason;  // why it failed; names "Camera K" (1-based) when one is to blame
  int camera = -1;     // index of the camera to blame, -1 when none
  double seconds = 0;  // time the pass took

  // The calibration messages of this report, in order: "pass N success." and
  // "error E" on success, "pass N failed. <reason>" on failure.
  std::vector<std::string> Messages() const;
};

// A frame's wand pose: LED i is at centre + offset_i * direction.
struct WandPose {
  int32_t frame = 0;
  Eigen::Vector3d centre = Eigen::Vector3d::Zero();
  Eigen::Vector3d direction = Eigen::Vector3d::UnitX();
};

// How the solver placed the world (a calibration cannot observe it): Y is the
// cameras' average image-up direction, the origin is the centroid of the wand
// centres, and camera `heading_camera` looks along -Z seen from above.
struct WorldFrame {
  int heading_camera = -1;
  double up_spread_deg = 0;  // RMS angle between the cameras' up and world Y
};

// A detection of the input that the final adjustment left out.
struct RejectedDetection {
  int frame = 0;          // index into the input's frames
  int observation = 0;    // index into that frame's observations
  bool repeated = false;  // its camera reported that LED more than once in the frame
};

enum class SolveStatus { kSuccess, kFailed, kCancelled };

struct CalibrationResult {
  SolveStatus status = SolveStatus::kFailed;
  std::vector<PassReport> passes;  // every pass that ended, in order

  // Per camera, in the input's order. Extrinsics are world to camera in the
  // world frame described by `world`; only calibrated cameras are meaningful.
  std::vector<bool> calibrated;
  std::vector<Extrinsics> extrinsics;
  std::vector<Intrinsics> intrinsics;
  std::vector<double> camera_rms_px;  // each camera's own RMS (inliers)
  std::vector<int> camera_samples;    // each camera's inlier samples
  std::vector<std::string> warnings;  // cameras left out (allow_uncalibrated_cameras), lenses held
  std::vector<bool> lens_refined;     // per camera: its lens was refined from the data
  std::vector<PoseUncertainty> uncertainty;  // per camera, from the final solve

  WorldFrame world;
  std::vector<WandPose> wand_poses;  // the frames the final pass used

  double rms_px = -1;    // final RMS, over both coordinates of every inlier sample
  int frames_used = 0;   // wand frames in the final adjustment
  int samples_used = 0;  // inlier samples (LED detections) in the final adjustment
  int outliers = 0;      // samples rejected as outliers
  int repeated = 0;      // samples left out as one of several blobs of an LED in a camera
  // Every detection of the final pass's frames and cameras that it left out.
  std::vector<RejectedDetection> rejected;
  int parameters = 0;    // free parameters of the final adjustment (gauge removed)
};

}  // namespace zord
