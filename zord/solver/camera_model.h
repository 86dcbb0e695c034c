// The pinhole camera with one radial distortion term, shared by the simulator
// (which projects the truth) and the calibration solver (which estimates it).
//
// Internally cameras follow the computer-vision convention: camera x right,
// y down, z forward; a world point X maps to the camera as R * X + t. What the
// server reports to clients is the camera-to-world pose in the viewer's
// convention: the camera looks along its -Z and image up is its +Y.
#pragma once

#include <Eigen/Core>
#include <Eigen/Geometry>

namespace zord {

struct Intrinsics {
  double fx = 1200, fy = 1200;  // focal lengths in pixels
  double cx = 640, cy = 512;    // principal point in pixels
  double k1 = 0;                // radial term: x_d = x_n (1 + k1 r^2)
  int width = 1280, height = 1024;

  bool Inside(const Eigen::Vector2d& uv) const {
    return uv.x() >= 0 && uv.y() >= 0 && uv.x() < width && uv.y() < height;
  }
};

// World to camera: X_cam = rotation * X_world + translation.
struct Extrinsics {
  Eigen::Quaterniond rotation = Eigen::Quaterniond::Identity();
  Eigen::Vector3d translation = Eigen::Vector3d::Zero();

  Eigen::Vector3d ToCamera(const Eigen::Vector3d& world) const {
    return rotation * world + translation;
  }
  Eigen::Vector3d Centre() const { return -(rotation.conjugate() * translation); }
};

// Distorts normalised coordinates (x/z, y/z) and maps them to pixels.
template <typename T>
Eigen::Matrix<T, 2, 1> DistortToPixel(const T& xn, const T& yn, const T& fx, const T& fy,
                                      const T& cx, const T& cy, const T& k1) {
  const T r2 = xn * xn + yn * yn;
  const T d = T(1) + k1 * r2;
  return {fx * xn * d + cx, fy * yn * d + cy};
}

// Projects a point given in camera coordinates; false when it is behind the camera.
inline bool ProjectCamera(const Intrinsics& k, const Eigen::Vector3d& pc, Eigen::Vector2d* uv) {
  if (pc.z() <= 1e-9) return false;
  *uv = DistortToPixel(pc.x() / pc.z(), pc.y() / pc.z(), k.fx, k.fy, k.cx, k.cy, k.k1);
  return true;
}

inline bool Project(const Intrinsics& k, const Extrinsics& e, const Eigen::Vector3d& world,
                    Eigen::Vector2d* uv) {
  return ProjectCamera(k, e.ToCamera(world), uv);
}

// Pixel to normalised undistorted coordinates (inverse of DistortToPixel) by
// fixed-point iteration; converges quickly for the small radial terms of real lenses.
inline Eigen::Vector2d PixelToNormalized(const Intrinsics& k, const Eigen::Vector2d& uv) {
  const Eigen::Vector2d xd((uv.x() - k.cx) / k.fx, (uv.y() - k.cy) / k.fy);
  Eigen::Vector2d xn = xd;
  for (int i = 0; i < 8; ++i) xn = xd / (1.0 + k.k1 * xn.squaredNorm());
  return xn;
}

// Unit ray direction in world coordinates through a pixel.
inline Eigen::Vector3d PixelRay(const Intrinsics& k, const Extrinsics& e, const Eigen::Vector2d& uv) {
  const Eigen::Vector2d xn = PixelToNormalized(k, uv);
  return (e.rotation.conjugate() * Eigen::Vector3d(xn.x(), xn.y(), 1.0)).normalized();
}

// Flips between the vision camera axes (y down, z forward) and the viewer's
// (y up, looking along -z): a rotation of 180 degrees about x.
inline Eigen::Quaterniond VisionToViewerAxes() { return Eigen::Quaterniond(0, 1, 0, 0); }

// The camera-to-world pose that clients see, as position and rotation.
inline void ReportedPose(const Extrinsics& e, Eigen::Vector3d* position, Eigen::Quaterniond* rotation) {
  *position = e.Centre();
  *rotation = (e.rotation.conjugate() * VisionToViewerAxes()).normalized();
}

// Inverse of ReportedPose.
inline Extrinsics FromReportedPose(const Eigen::Vector3d& position, const Eigen::Quaterniond& rotation) {
  Extrinsics e;
  e.rotation = (rotation * VisionToViewerAxes().conjugate()).conjugate().normalized();
  e.translation = -(e.rotation * position);
  return e;
}

}  // namespace zord
