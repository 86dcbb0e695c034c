#include "zord/room/recon.h"

#include <cmath>

#include <Eigen/SVD>

namespace zord {
CalibratedCamera MakeCalibratedCamera(bool calibrated, const Intrinsics& lens, const Extrinsics& pose) {
  CalibratedCamera cam;
  cam.calibrated = calibrated;
  cam.lens = lens;
  cam.to_world = pose.rotation.conjugate().toRotationMatrix();
  cam.centre = pose.Centre();
  cam.inv_fx = 1 / lens.fx;
  cam.inv_fy = 1 / lens.fy;
  cam.focal = 0.5 * (lens.fx + lens.fy);
  return cam;
}

Eigen::Vector2d Undistort(const CalibratedCamera& cam, double u, double v) {
  if (!cam.lens.Radial()) return PixelToNormalized(cam.lens, {u, v});
  const double xd = (u - cam.lens.cx) * cam.inv_fx;
  const double yd = (v - cam.lens.cy) * cam.inv_fy;
  const double a = cam.lens.k1 * (xd * xd + yd * yd);
  // The root's power series in a (coefficients (-1)^k C(3k, k) / (2k + 1)),
  // accurate to 1e-12 for the mild lenses of real cameras; strong lenses get
  // Newton steps on top.
  // Estrin's scheme keeps the dependency chain short.
  const double a2 = a * a, a4 = a2 * a2;
  double s = (1 - a) + a2 * (3 - 12 * a) + a4 * ((55 - 273 * a) + a2 * (1428 - 7752 * a));
  if (std::abs(a) > 0.01) {
    for (int i = 0; i < 3; ++i) s -= (s + a * s * s * s - 1) / (1 + 3 * a * s * s);
  }
  return {s * xd, s * yd};
}

namespace {

// One weighted least-squares solve. Each ray e through camera centre c adds
// w (I - e e^T / |e|^2) to the normal matrix and the same times c to the right
// side; e is not normalised (|e|^2 = 1 + |x_n|^2 needs no square root). With
// a prior, w = 1 / |prior - c|^2, so the weighted sum of squared distances
// from the rays, K - x.b, is the sum of squared angular errors.
bool Solve(const std::vector<CalibratedCamera>& rig, const Detection* detections, int count,
           const Eigen::Vector3d* prior, Triangulated* out) {
  int n = 0;
  double sw = 0, sxx = 0, sxy = 0, sxz = 0, syy = 0, syz = 0, szz = 0;
  double k = 0, focal = 0;
  Eigen::Vector3d b = Eigen::Vector3d::Zero();
  for (int i = 0; i < count; ++i) {
    const CalibratedCamera& cam = rig[detections[i].camera];
    if (!cam.calibrated) continue;
    ++n;
    const Eigen::Vector2d xn = Undistort(cam, detections[i].u, detections[i].v);
    const Eigen::Vector3d e = cam.to_world * Eigen::Vector3d(xn.x(), xn.y(), 1.0);
    const double norm_sq = 1 + xn.squaredNorm();
    const double dist_sq = prior ? std::max(1.0, (*prior - cam.centre).squaredNorm()) : 1.0;
    const double we = 1 / (dist_sq * norm_sq);
    const double w = we * norm_sq;
    const Eigen::Vector3d& c = cam.centre;
    const double ec = e.dot(c);
    sw += w;
    sxx += we * e.x() * e.x();
    sxy += we * e.x() * e.y();
    sxz += we * e.x() * e.z();
    syy += we * e.y() * e.y();
    syz += we * e.y() * e.z();
    szz += we * e.z() * e.z();
    b += w * c - (we * ec) * e;
    k += w * c.squaredNorm() - we * ec * ec;
    focal += cam.focal;
  }
  if (n < 2) return false;
  Eigen::Matrix3d a;
  a << sw - sxx, -sxy, -sxz, -sxy, sw - syy, -syz, -sxz, -syz, sw - szz;
  // Parallel rays make the normal matrix singular.
  if (!(std::abs(a.determinant()) > 1e-12 * sw * sw * sw)) return false;
  out->position = a.inverse() * b;
  // Angular RMS times the mean focal length: the RMS residual in pixels.
  const double rms_px = focal / n * std::sqrt(std::max(0.0, k - out->position.dot(b)) / n);
  out->cond = static_cast<float>(1.0 / (1.0 + rms_px));
  out->cameras = static_cast<uint32_t>(n);
  return true;
}

}  // namespace

bool Triangulate(const std::vector<CalibratedCamera>& rig, const Detection* detections, int count,
                 const Eigen::Vector3d* prior, Triangulated* out) {
  out->cond = 0;
  out->cameras = 0;
  if (prior) return Solve(rig, detections, count, prior, out);
  // No prior: a first, unweighted solve provides it.
  Triangulated first;
  return Solve(rig, detections, count, nullptr, &first) &&
         Solve(rig, detections, count, &first.position, out);
}

bool FitRigid(const Eigen::Vector3d* local, const Eigen::Vector3d* world, int count, RigidFit* fit) {
  if (count < 3) return false;
  Eigen::Vector3d local_mean = Eigen::Vector3d::Zero(), world_mean = Eigen::Vector3d::Zero();
  for (int i = 0; i < count; ++i) {
    local_mean += local[i];
    world_mean += world[i];
  }
  local_mean /= count;
  world_mean /= count;
  Eigen::Matrix3d h = Eigen::Matrix3d::Zero();
  for (int i = 0; i < count; ++i) h += (local[i] - local_mean) * (world[i] - world_mean).transpose();
  const Eigen::JacobiSVD<Eigen::Matrix3d> svd(h, Eigen::ComputeFullU | Eigen::ComputeFullV);
  Eigen::Matrix3d r;
  if (svd.singularValues()(1) <= 1e-9 * svd.singularValues()(0)) {
    // Markers on a line (a wand): the turn about the line is undetermined, so
    // take the smallest rotation that lines the axes up rather than noise.
    r = Eigen::Quaterniond::FromTwoVectors(svd.matrixU().col(0), svd.matrixV().col(0)).toRotationMatrix();
  } else {
    Eigen::Matrix3d d = Eigen::Matrix3d::Identity();
    if ((svd.matrixV() * svd.matrixU().transpose()).determinant() < 0) d(2, 2) = -1;
    r = svd.matrixV() * d * svd.matrixU().transpose();
  }
  fit->rotation = Eigen::Quaterniond(r).normalized();
  fit->position = world_mean - r * local_mean;
  double sum_sq = 0;
  for (int i = 0; i < count; ++i) sum_sq += (r * local[i] + fit->position - world[i]).squaredNorm();
  fit->rms_mm = std::sqrt(sum_sq / count);
  return true;
}

}  // namespace zord
