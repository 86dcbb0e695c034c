// The pinhole camera with two radial and two tangential distortion terms,
// shared by the simulator (which projects the truth) and the calibration
// solver (which estimates it).
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
  double k1 = 0, k2 = 0;        // radial terms: x_d = x_n (1 + k1 r^2 + k2 r^4) + tangential
  double p1 = 0, p2 = 0;        // tangential (decentring) terms
  int width = 1280, height = 1024;

  bool Inside(const Eigen::Vector2d& uv) const {
    return uv.x() >= 0 && uv.y() >= 0 && uv.x() < width && uv.y() < height;
  }
  bool Radial() const { return k2 == 0 && p1 == 0 && p2 == 0; }  // k1 alone
};

// A lens images rays only up to the angle its glass admits, which for a
// machine-vision lens just covers the sensor: the distortion polynomial means
// nothing beyond it (with negative k1 it folds far-off points back into the
// image). The field is taken as the undistorted radius of the image corner
// furthest from the principal point, plus a small margin, and never beyond
// where the radial mapping stops growing.
struct LensField {
  double max_r2 = 0;  // largest squared undistorted normalised radius imaged

  bool Admits(double xn, double yn) const { return xn * xn + yn * yn <= max_r2; }
};
LensField FieldOf(const Intrinsics& k);

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
// `d` holds k1, k2, p1, p2.
template <typename T>
Eigen::Matrix<T, 2, 1> DistortToPixel(const T& xn, const T& yn, const T& fx, const T& fy,
                                      const T& cx, const T& cy, const T* d) {
  const T r2 = xn * xn + yn * yn;
  const T radial = T(1) + r2 * (d[0] + d[1] * r2);
  const T xd = xn * radial + T(2) * d[2] * xn * yn + d[3] * (r2 + T(2) * xn * xn);
  const T yd = yn * radial + d[2] * (r2 + T(2) * yn * yn) + T(2) * d[3] * xn * yn;
  return {fx * xd + cx, fy * yd + cy};
}

inline Eigen::Vector2d DistortToPixel(const Intrinsics& k, double xn, double yn) {
  const double d[4] = {k.k1, k.k2, k.p1, k.p2};
  return DistortToPixel(xn, yn, k.fx, k.fy, k.cx, k.cy, d);
}

// Derivative of the pixel (DistortToPixel) by the normalised coordinates.
inline Eigen::Matrix2d PixelByNormalized(const Intrinsics& k, double xn, double yn) {
  const double r2 = xn * xn + yn * yn, radial = 1 + r2 * (k.k1 + k.k2 * r2);
  const double dradial = 2 * (k.k1 + 2 * k.k2 * r2);  // d radial / d (r^2), times 2
  Eigen::Matrix2d j;
  j << k.fx * (radial + xn * dradial * xn + 2 * k.p1 * yn + 6 * k.p2 * xn),
      k.fx * (xn * dradial * yn + 2 * k.p1 * xn + 2 * k.p2 * yn),
      k.fy * (yn * dradial * xn + 2 * k.p1 * xn + 2 * k.p2 * yn),
      k.fy * (radial + yn * dradial * yn + 6 * k.p1 * yn + 2 * k.p2 * xn);
  return j;
}

// Derivative of the pixel by the point in camera coordinates.
inline Eigen::Matrix<double, 2, 3> PixelByCameraPoint(const Intrinsics& k, const Eigen::Vector3d& pc) {
  const double xn = pc.x() / pc.z(), yn = pc.y() / pc.z();
  Eigen::Matrix<double, 2, 3> project;
  project << 1 / pc.z(), 0, -xn / pc.z(), 0, 1 / pc.z(), -yn / pc.z();
  return PixelByNormalized(k, xn, yn) * project;
}

// Projects a point given in camera coordinates; false when it is behind the camera.
inline bool ProjectCamera(const Intrinsics& k, const Eigen::Vector3d& pc, Eigen::Vector2d* uv) {
  if (pc.z() <= 1e-9) return false;
  *uv = DistortToPixel(k, pc.x() / pc.z(), pc.y() / pc.z());
  return true;
}

// Projects like ProjectCamera, but only what the lens really images: in front
// of the camera, inside its field and inside the image.
inline bool ImageCamera(const Intrinsics& k, const LensField& field, const Eigen::Vector3d& pc,
                        Eigen::Vector2d* uv) {
  if (pc.z() <= 1e-9 || !field.Admits(pc.x() / pc.z(), pc.y() / pc.z())) return false;
  *uv = DistortToPixel(k, pc.x() / pc.z(), pc.y() / pc.z());
  return k.Inside(*uv);
}

inline bool Project(const Intrinsics& k, const Extrinsics& e, const Eigen::Vector3d& world,
                    Eigen::Vector2d* uv) {
  return ProjectCamera(k, e.ToCamera(world), uv);
}

// Pixel to normalised undistorted coordinates (inverse of DistortToPixel) by
// Newton steps from the distorted point; converges in a few steps for the
// distortion of real lenses inside their field.
Eigen::Vector2d PixelToNormalized(const Intrinsics& k, const Eigen::Vector2d& uv);

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
