#include "zord/solver/resection.h"

#include <algorithm>

#include <opencv2/calib3d.hpp>
#include <opencv2/core/eigen.hpp>

#include "zord/solver/triangulation.h"

namespace zord {

bool ResectCamera(const SampleSet& set, const StraightWand& wand, const CalibState& state,
                  int camera, double threshold_px, int min_inliers, Extrinsics* pose) {
  // At most this many detections, spread over the capture: enough for RANSAC.
  constexpr int kMaxDetections = 4000;
  std::vector<cv::Point3d> leds;
  std::vector<cv::Point2d> seen;
  for (size_t f = 0; f < set.frames.size(); ++f) {
    if (!state.wand[f]) continue;
    auto add = [&](const Sample& s) {
      const Eigen::Vector3d x = WandLedPosition(*state.wand[f], wand.offsets[s.led]);
      const Eigen::Vector2d n = PixelToNormalized(state.lenses[camera], s.pixel);
      leds.emplace_back(x.x(), x.y(), x.z());
      seen.emplace_back(n.x(), n.y());
    };
    const SampleRange range = CameraRange(set.frames[f], camera);
    for (int i = range.first; i < range.second; ++i) add(set.frames[f].samples[i]);
    for (const Sample& s : set.frames[f].repeated)
      if (s.camera == camera) add(s);
  }
  if (static_cast<int>(leds.size()) < min_inliers) return false;
  std::vector<cv::Point3d> some_leds;
  std::vector<cv::Point2d> some_seen;
  const size_t sample_count = std::min<size_t>(leds.size(), kMaxDetections);
  for (size_t i : SelectEvenly(leds.size(), kMaxDetections)) {
    some_leds.push_back(leds[i]);
    some_seen.push_back(seen[i]);
  }
  // Projection cannot tell a point from its opposite through the camera
  // centre, and a reflection is such a flip after a turn: the detections of
  // a mirror image can agree on a pose that has the wand behind the camera.
  // Such a consensus is set aside and the search runs again on the rest.
  const double focal = state.lenses[camera].fx;
  for (int attempt = 0; attempt < 3; ++attempt) {
    if (static_cast<int>(some_leds.size()) < 6) return false;
    cv::Mat rvec, tvec;
    std::vector<int> inliers;
    if (!cv::solvePnPRansac(some_leds, some_seen, cv::Mat::eye(3, 3, CV_64F), cv::noArray(), rvec,
                            tvec, false, 2000, static_cast<float>(threshold_px / focal), 0.999,
                            inliers, cv::SOLVEPNP_EPNP))
      return false;
    cv::Mat r;
    cv::Rodrigues(rvec, r);
    Eigen::Matrix3d rotation;
    Eigen::Vector3d translation;
    cv::cv2eigen(r, rotation);
    cv::cv2eigen(tvec, translation);
    std::vector<cv::Point3d> in_leds, rest_leds;
    std::vector<cv::Point2d> in_seen, rest_seen;
    std::vector<char> agreed(some_leds.size(), 0);
    for (int i : inliers) agreed[i] = 1;
    for (size_t i = 0; i < some_leds.size(); ++i) {
      const cv::Point3d& x = some_leds[i];
      const bool in_front = (rotation.row(2).dot(Eigen::Vector3d(x.x, x.y, x.z)) + translation.z()) > 0;
      auto& leds_to = agreed[i] && in_front ? in_leds : rest_leds;
      auto& seen_to = agreed[i] && in_front ? in_seen : rest_seen;
      leds_to.push_back(x);
      seen_to.push_back(some_seen[i]);
    }
    if (2 * in_leds.size() < inliers.size()) {
      // Mostly behind the camera: the consensus of a reflection; drop it.
      std::vector<cv::Point3d> keep_leds;
      std::vector<cv::Point2d> keep_seen;
      for (size_t i = 0; i < agreed.size(); ++i) {
        if (agreed[i]) continue;
        keep_leds.push_back(some_leds[i]);
        keep_seen.push_back(some_seen[i]);
      }
      some_leds = std::move(keep_leds);
      some_seen = std::move(keep_seen);
      continue;
    }
    if (static_cast<int>(in_leds.size() * leds.size() / std::max<size_t>(1, sample_count)) <
        min_inliers)
      return false;
    cv::solvePnP(in_leds, in_seen, cv::Mat::eye(3, 3, CV_64F), cv::noArray(), rvec, tvec, true,
                 cv::SOLVEPNP_ITERATIVE);
    cv::Rodrigues(rvec, r);
    cv::cv2eigen(r, rotation);
    cv::cv2eigen(tvec, translation);
    pose->rotation = Eigen::Quaterniond(rotation).normalized();
    pose->translation = translation;
    return true;
  }
  return false;
}

}  // namespace zord
