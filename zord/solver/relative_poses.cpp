#include "zord/solver/relative_poses.h"

#include <opencv2/calib3d.hpp>
#include <opencv2/core/eigen.hpp>

#include "zord/solver/triangulation.h"

namespace zord {

CameraTree BuildCameraTree(const CameraLinks& links, const std::vector<bool>& active,
                           int min_shared_frames) {
  const int n = static_cast<int>(active.size());
  CameraTree tree;
  tree.parent.assign(n, -1);
  long best = -1;
  for (int c = 0; c < n; ++c) {
    if (!active[c]) continue;
    long total = 0;
    for (int o = 0; o < n; ++o) total += active[o] ? links.shared_samples(c, o) : 0;
    if (total > best) best = total, tree.root = c;
  }
  if (tree.root < 0) return tree;

  // Prim's algorithm: repeatedly attach the outside camera with the strongest link.
  std::vector<bool> inside(n, false);
  inside[tree.root] = true;
  tree.order.push_back(tree.root);
  for (;;) {
    int from = -1, to = -1, weight = 0;
    for (int a : tree.order) {
      for (int b = 0; b < n; ++b) {
        if (!active[b] || inside[b] || links.shared_frames(a, b) < min_shared_frames) continue;
        if (links.shared_samples(a, b) > weight)
          weight = links.shared_samples(a, b), from = a, to = b;
      }
    }
    if (to < 0) break;
    inside[to] = true;
    tree.parent[to] = from;
    tree.order.push_back(to);
  }
  return tree;
}

PairPose EstimatePairPose(const SampleSet& set, int parent, int child,
                          const std::vector<Intrinsics>& lenses, const SolverOptions& options) {
  struct Match {
    const Sample* a;
    const Sample* b;
  };
  std::vector<Match> all;
  for (const SampleFrame& frame : set.frames) {
    const auto ranges = CameraRanges(frame, set.cameras);
    ForEachCommonLed(frame, ranges[parent], ranges[child], [&](int i, int j) {
      all.push_back({&frame.samples[i], &frame.samples[j]});
    });
  }
  std::vector<cv::Point2d> pa, pb;
  std::vector<Match> used;
  for (size_t i : SelectEvenly(all.size(), options.max_pair_samples)) {
    used.push_back(all[i]);
    pa.emplace_back(all[i].a->normalized.x(), all[i].a->normalized.y());
    pb.emplace_back(all[i].b->normalized.x(), all[i].b->normalized.y());
  }

  PairPose out;
  out.samples = static_cast<int>(used.size());
  if (out.samples < 16) {
    out.problem = "too few shared samples (" + std::to_string(out.samples) + ")";
    return out;
  }
  // Normalized points: the pixel threshold becomes a fraction of the focal length.
  const double focal = 0.5 * (lenses[parent].fx + lenses[child].fx);
  cv::Mat mask;
  const cv::Mat essential =
      cv::findEssentialMat(pa, pb, 1.0, cv::Point2d(0, 0), cv::RANSAC, 0.9999,
                           options.essential_threshold_px / focal, 2000, mask);
  if (essential.rows != 3 || essential.cols != 3) {
    out.problem = "no relative pose fits the shared samples";
    return out;
  }
  cv::Mat r_cv, t_cv;
  out.inliers = cv::recoverPose(essential, pa, pb, r_cv, t_cv, 1.0, cv::Point2d(0, 0), mask);
  // Real wand data has few outliers; a pose most samples disagree with is wrong.
  if (out.inliers < std::max(12, out.samples / 2)) {
    out.problem = "relative pose is inconsistent (" + std::to_string(out.inliers) + " of " +
                  std::to_string(out.samples) + " shared samples agree)";
    return out;
  }
  Eigen::Matrix3d r;
  Eigen::Vector3d t;
  cv::cv2eigen(r_cv, r);
  cv::cv2eigen(t_cv, t);
  out.relative.rotation = Eigen::Quaterniond(r).normalized();
  out.relative.translation = t.normalized();

  const std::vector<Extrinsics> views = {Extrinsics{}, out.relative};
  for (size_t i = 0; i < used.size(); ++i) {
    if (!mask.at<uchar>(static_cast<int>(i))) continue;
    const auto point = TriangulateNormalized(views, {used[i].a->normalized, used[i].b->normalized});
    if (!point) continue;
    const double ea = ReprojectionErrorPx(lenses[parent], views[0], *point, used[i].a->pixel);
    const double eb = ReprojectionErrorPx(lenses[child], views[1], *point, used[i].b->pixel);
    out.squared_error_px += ea * ea + eb * eb;
    out.residuals += 4;
  }
  return out;
}

}  // namespace zord
