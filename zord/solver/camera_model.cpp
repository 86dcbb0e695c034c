#include "zord/solver/camera_model.h"

#include <Eigen/LU>
#include <algorithm>
#include <cmath>

namespace zord {

LensField FieldOf(const Intrinsics& k) {
  // Distorted radius of the furthest image corner, with a 2 % margin so that
  // blobs at the very edge of the sensor are still imaged.
  double corner = 0;
  for (const double u : {0.0, double(k.width)}) {
    for (const double v : {0.0, double(k.height)}) {
      corner = std::max(corner, std::hypot((u - k.cx) / k.fx, (v - k.cy) / k.fy));
    }
  }
  corner *= 1.02;
  // Walk out along the radial mapping g(r) = r (1 + k1 r^2 + k2 r^4) while it
  // grows and stays inside the corner; 4 is about 76 degrees off axis.
  constexpr double kStep = 1e-3, kFurthest = 4;
  double r = 0;
  while (r < kFurthest) {
    const double next = r + kStep, n2 = next * next;
    const double slope = 1 + 3 * k.k1 * n2 + 5 * k.k2 * n2 * n2;
    const double radius = next * (1 + k.k1 * n2 + k.k2 * n2 * n2);
    if (slope <= 0 || radius > corner) break;
    r = next;
  }
  return {r * r};
}

Eigen::Vector2d PixelToNormalized(const Intrinsics& k, const Eigen::Vector2d& uv) {
  const Eigen::Vector2d xd((uv.x() - k.cx) / k.fx, (uv.y() - k.cy) / k.fy);
  if (k.Radial()) {
    // Fixed-point iteration: fast and exact enough for one radial term.
    Eigen::Vector2d xn = xd;
    for (int i = 0; i < 8; ++i) xn = xd / (1.0 + k.k1 * xn.squaredNorm());
    return xn;
  }
  Eigen::Vector2d xn = xd;
  for (int i = 0; i < 10; ++i) {
    const double x = xn.x(), y = xn.y(), r2 = x * x + y * y;
    const double radial = 1 + r2 * (k.k1 + k.k2 * r2);
    const Eigen::Vector2d f(x * radial + 2 * k.p1 * x * y + k.p2 * (r2 + 2 * x * x) - xd.x(),
                            y * radial + k.p1 * (r2 + 2 * y * y) + 2 * k.p2 * x * y - xd.y());
    // The pixel's derivative in units of the focal length.
    Eigen::Matrix2d j = PixelByNormalized(k, x, y);
    j.row(0) /= k.fx;
    j.row(1) /= k.fy;
    const Eigen::Vector2d step = j.inverse() * f;
    xn -= step;
    if (step.squaredNorm() < 1e-26) break;
  }
  return xn;
}

}  // namespace zord
