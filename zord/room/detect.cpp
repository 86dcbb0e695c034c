#include "zord/room/detect.h"

#include <algorithm>

namespace zord {
namespace {
// LEDs closer than this to a camera are out of focus and not detected.
constexpr double kNearMm = 50;
}  // namespace

Detector::Detector(const Scene& scene, uint64_t seed, double noise_px, double dropout)
    : rng_(seed), noise_px_(static_cast<float>(noise_px)), dropout_(dropout) {
  for (const SceneCamera& cam : scene.cameras) {
    cameras_.push_back({cam.pose.rotation.toRotationMatrix(), cam.pose.translation, cam.truth});
  }
  detections_.reserve(static_cast<size_t>(scene.LedCount()) * cameras_.size());
  first_.assign(scene.LedCount() + 1, 0);
  per_camera_.assign(cameras_.size(), 0);
}

void Detector::Run(const std::vector<Eigen::Vector3d>& world, const std::vector<uint8_t>& lit) {
  detections_.clear();
  std::fill(per_camera_.begin(), per_camera_.end(), 0);
  const int leds = static_cast<int>(first_.size()) - 1;
  const int cameras = static_cast<int>(cameras_.size());
  const float noise = noise_px_;
  for (int slot = 0; slot < leds; ++slot) {
    first_[slot] = static_cast<int>(detections_.size());
    if (!lit[slot]) continue;
    const Eigen::Vector3d& x = world[slot];
    for (int c = 0; c < cameras; ++c) {
      const Camera& cam = cameras_[c];
      const Eigen::Vector3d pc = cam.rotation * x + cam.translation;
      if (pc.z() < kNearMm) continue;
      const Intrinsics& k = cam.lens;
      const Eigen::Vector2d uv = DistortToPixel(pc.x() / pc.z(), pc.y() / pc.z(), k.fx, k.fy,
                                                k.cx, k.cy, k.k1);
      float nu, nv;
      rng_.Normal2(&nu, &nv);
      const float u = static_cast<float>(uv.x()) + noise * nu;
      const float v = static_cast<float>(uv.y()) + noise * nv;
      if (!(u >= 0 && v >= 0 && u < k.width && v < k.height)) continue;
      if (dropout_ > 0 && rng_.Uniform() < dropout_) continue;
      detections_.push_back({c, slot, u, v, static_cast<float>(pc.z())});
      ++per_camera_[c];
    }
  }
  first_[leds] = static_cast<int>(detections_.size());
}

void Detector::Load(const std::vector<ZORImage>& images, const Scene& scene) {
  detections_.clear();
  std::fill(per_camera_.begin(), per_camera_.end(), 0);
  std::fill(first_.begin(), first_.end(), 0);
  const int cameras = static_cast<int>(cameras_.size());
  auto slot_of = [&](const ZORImage& image) {
    return image.camera >= 0 && image.camera < cameras ? scene.SlotOf(image.led) : -1;
  };
  // Counting sort by slot; cameras keep their recorded order within a slot.
  for (const ZORImage& image : images) {
    if (const int slot = slot_of(image); slot >= 0) ++first_[slot + 1];
  }
  for (size_t i = 1; i < first_.size(); ++i) first_[i] += first_[i - 1];
  detections_.resize(static_cast<size_t>(first_.back()));
  std::vector<int> next(first_.begin(), first_.end() - 1);
  for (const ZORImage& image : images) {
    const int slot = slot_of(image);
    if (slot < 0) continue;
    detections_[next[slot]++] = {image.camera, slot, image.u, image.v, 0};
    ++per_camera_[image.camera];
  }
}

float BlobSize(double led_diameter_mm, double focal_px, float depth) {
  return std::max(1.5f, static_cast<float>(led_diameter_mm * focal_px) / depth);
}

float BlobIntensity(float depth) {
  const float r = 1500.0f / depth;
  return std::clamp(r * r, 0.05f, 1.0f);
}

}  // namespace zord
