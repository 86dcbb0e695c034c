// Reconstruction with the server's current calibration (never the truth):
// triangulation of an LED from its 2D detections, and the rigid fit of a
// tracker's local marker positions to the triangulated ones.
#pragma once

#include <cstdint>
#include <vector>

#include <Eigen/Core>
#include <Eigen/Geometry>

#include "zord/room/detect.h"
#include "zord/solver/camera_model.h"

namespace zord {

// One camera as the current calibration knows it, ready for ray casting.
struct CalibratedCamera {
  bool calibrated = false;
  Intrinsics lens;
  Eigen::Matrix3d to_world = Eigen::Matrix3d::Identity();  // camera axes to world
  Eigen::Vector3d centre = Eigen::Vector3d::Zero();
  double inv_fx = 1, inv_fy = 1;  // precomputed for undistortion
  double focal = 1;               // mean focal length, for pixel residuals
};

// Pixel to normalised undistorted coordinates: the inverse of the one-term
// radial model solved for the scale s (x_n = s x_d, s + k1 r_d^2 s^3 = 1) by
// Newton's method from its series start; as exact as PixelToNormalized and
// much cheaper, since triangulation runs it for every detection. Lenses with
// more terms take the general PixelToNormalized.
Eigen::Vector2d Undistort(const CalibratedCamera& cam, double u, double v);

CalibratedCamera MakeCalibratedCamera(bool calibrated, const Intrinsics& lens, const Extrinsics& pose);

struct Triangulated {
  Eigen::Vector3d position = Eigen::Vector3d::Zero();
  float cond = 0;      // 1 / (1 + RMS residual in pixels); 0 when not triangulated
  uint32_t cameras = 0;
};

// Least-squares intersection of the rays of the detections by calibrated
// cameras, each ray weighted by its inverse squared distance from `prior` (the
// LED's last position; without one, from a first unweighted solution), which
// makes the sum approximate the reprojection error. cond = 1 / (1 + RMS
// residual in pixels). False (cond 0) when fewer than two calibrated cameras
// see the LED or the rays are parallel.
bool Triangulate(const std::vector<CalibratedCamera>& rig, const Detection* detections, int count,
                 const Eigen::Vector3d* prior, Triangulated* out);

struct RigidFit {
  Eigen::Vector3d position = Eigen::Vector3d::Zero();  // local to world
  Eigen::Quaterniond rotation = Eigen::Quaterniond::Identity();
  double rms_mm = 0;
};

// Least-squares rotation and translation taking local[i] to world[i] (Kabsch);
// false with fewer than 3 points.
bool FitRigid(const Eigen::Vector3d* local, const Eigen::Vector3d* world, int count, RigidFit* fit);

// Quality reported for a rigid body: 1 / (1 + RMS fit residual in mm).
inline float RigidCond(double rms_mm) { return static_cast<float>(1.0 / (1.0 + rms_mm)); }

}  // namespace zord
