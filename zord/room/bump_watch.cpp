#include "zord/room/bump_watch.h"

#include <algorithm>
#include <cmath>

namespace zord {
namespace {

// Pixel where a calibrated camera sees a world point; false behind it.
bool SeenAt(const CalibratedCamera& cam, const Eigen::Vector3d& world, Eigen::Vector2d* uv) {
  return ProjectCamera(cam.lens, cam.to_world.transpose() * (world - cam.centre), uv);
}

}  // namespace

void BumpWatch::Reset(int cameras) {
  cameras_.assign(cameras, CameraWatch{});
  learn_.assign(cameras, Sum{});
  frame_.assign(cameras, Sum{});
  since_reset_s_ = 0;
  since_check_s_ = 0;
}

bool BumpWatch::Check(const std::vector<CalibratedCamera>& rig, const Detector& detector,
                      const std::vector<int>& slots, double dt) {
  if (static_cast<int>(rig.size()) != static_cast<int>(cameras_.size())) Reset(static_cast<int>(rig.size()));
  since_reset_s_ += dt;
  since_check_s_ += dt;
  if (since_check_s_ < 1.0 / options_.checks_per_second) return false;
  const double elapsed = since_check_s_;
  since_check_s_ = 0;

  for (Sum& s : frame_) s = Sum{};
  const size_t take = std::min(slots.size(), static_cast<size_t>(options_.max_leds));
  for (size_t k = 0; k < take; ++k) {
    const int slot = slots[(next_slot_ + k) % slots.size()];
    const Detection* d = detector.detections().data() + detector.First(slot);
    const int n = detector.Count(slot);
    int views = 0;
    for (int i = 0; i < n; ++i) views += rig[d[i].camera].calibrated;
    if (views < options_.min_views) continue;
    // Each camera against the point the others make of the LED.
    for (int i = 0; i < n; ++i) {
      const CalibratedCamera& cam = rig[d[i].camera];
      if (!cam.calibrated) continue;
      // Cameras already reported are left out: they would drag the point.
      others_.clear();
      for (int j = 0; j < n; ++j)
        if (j != i && !cameras_[d[j].camera].moved) others_.push_back(d[j]);
      Triangulated t;
      Eigen::Vector2d uv;
      if (others_.size() < 2 ||
          !Triangulate(rig, others_.data(), static_cast<int>(others_.size()), nullptr, &t) ||
          !SeenAt(cam, t.position, &uv))
        continue;
      Sum& s = frame_[d[i].camera];
      s.squared += (uv - Eigen::Vector2d(d[i].u, d[i].v)).squaredNorm();
      ++s.count;
    }
  }

  next_slot_ = slots.empty() ? 0 : (next_slot_ + take) % slots.size();
  const bool learning = since_reset_s_ < options_.settle_s;
  const double keep = std::exp(-elapsed / options_.smoothing_s);
  // A knocked camera also raises the residual of cameras whose points it
  // helps to make, less than its own: only the worst ones are reported.
  double worst_excess = 0;
  for (size_t c = 0; c < cameras_.size(); ++c) {
    const Sum& s = frame_[c];
    if (s.count == 0) continue;
    const double rms = std::sqrt(s.squared / s.count);
    CameraWatch& w = cameras_[c];
    w.residual_px = w.residual_px < 0 ? rms : keep * w.residual_px + (1 - keep) * rms;
    if (learning) {
      learn_[c].squared += rms * rms;
      ++learn_[c].count;
      continue;
    }
    if (w.level_px < 0) {
      if (learn_[c].count == 0) {  // not seen while learning: its level is what it sees now
        learn_[c] = s;
      }
      w.level_px = std::sqrt(learn_[c].squared / learn_[c].count);
    }
    worst_excess = std::max(worst_excess, w.residual_px - w.level_px);
  }
  if (learning) return true;
  for (CameraWatch& w : cameras_) {
    if (w.level_px < 0) continue;
    const double high = std::max(w.level_px + options_.alert_px, options_.alert_factor * w.level_px);
    if (!w.moved && w.residual_px > high && w.residual_px - w.level_px >= 0.5 * worst_excess)
      w.moved = true;
    if (w.moved && w.residual_px < w.level_px + options_.clear_px) w.moved = false;
  }
  return true;
}

}  // namespace zord
