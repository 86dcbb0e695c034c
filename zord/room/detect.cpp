#include "zord/room/detect.h"

#include <algorithm>
#include <numeric>

namespace zord {
namespace {
// LEDs closer than this to a camera are out of focus and not detected.
constexpr double kNearMm = 50;
// A blob less visible than this behind an edge is lost.
constexpr double kLeastVisible = 0.3;
// The operator stands this far beside the wand's middle, across its axis.
constexpr double kOperatorReachMm = 500;

// How much of an LED a vertical cylinder (axis through `axis` in x and z,
// from y = bottom to top, radius r) leaves visible from `eye`: 1 when none
// of it is covered, 0 when all of it is. `led_radius` is the LED's own
// radius; `away` gets the horizontal direction from the axis to the line of
// sight, along which the visible part of the blob lies.
double Visible(const Eigen::Vector3d& eye, const Eigen::Vector3d& led, const Eigen::Vector2d& axis,
               double bottom, double top, double r, double led_radius, Eigen::Vector2d* away) {
  const Eigen::Vector2d e(eye.x(), eye.z()), d(led.x() - eye.x(), led.z() - eye.z());
  const double length2 = d.squaredNorm();
  const double t = length2 > 0 ? std::clamp((axis - e).dot(d) / length2, 0.0, 1.0) : 0.0;
  const double y = eye.y() + t * (led.y() - eye.y());
  if (y < bottom || y > top) return 1;
  const Eigen::Vector2d closest = e + t * d - axis;
  const double distance = closest.norm();
  // The cone of rays from the LED's disc to the lens is t * led_radius wide here.
  const double half_width = std::max(1e-9, t * led_radius);
  if (distance >= r + half_width) return 1;
  *away = distance > 1e-9 ? Eigen::Vector2d(closest / distance) : Eigen::Vector2d(1, 0);
  return std::clamp((distance - (r - half_width)) / (2 * half_width), 0.0, 1.0);
}

Eigen::Vector3d Mirrored(const ScenePlane& plane, const Eigen::Vector3d& x) {
  return x - 2 * (x - plane.point).dot(plane.normal) * plane.normal;
}

}  // namespace

Eigen::Vector3d OperatorPosition(const Eigen::Vector3d& wand_centre,
                                 const Eigen::Vector3d& wand_direction) {
  Eigen::Vector2d across(wand_direction.z(), -wand_direction.x());
  across = across.norm() > 0.1 ? Eigen::Vector2d(across.normalized()) : Eigen::Vector2d(1, 0);
  return {wand_centre.x() + kOperatorReachMm * across.x(), 0,
          wand_centre.z() + kOperatorReachMm * across.y()};
}

Detector::Detector(const Scene& scene, uint64_t seed, double noise_px, double dropout)
    : rng_(seed), noise_px_(static_cast<float>(noise_px)), dropout_(dropout),
      effects_(scene.effects), led_radius_mm_(0.5 * scene.led_diameter_mm) {
  for (const SceneCamera& cam : scene.cameras) {
    cameras_.push_back({cam.pose.rotation.toRotationMatrix(), cam.pose.translation,
                        cam.pose.Centre(), cam.truth, FieldOf(cam.truth)});
  }
  detections_.reserve(static_cast<size_t>(scene.LedCount()) * cameras_.size());
  first_.assign(scene.LedCount() + 1, 0);
  per_camera_.assign(cameras_.size(), 0);
}

void Detector::Move(int camera, const Extrinsics& pose) {
  Camera& cam = cameras_[camera];
  cam.rotation = pose.rotation.toRotationMatrix();
  cam.translation = pose.translation;
  cam.centre = pose.Centre();
}

bool Detector::Occlude(int camera, const Eigen::Vector3d* person, Eigen::Vector3d* led) {
  const Eigen::Vector3d& eye = cameras_[camera].centre;
  double visible = 1;
  Eigen::Vector2d away(1, 0);
  auto cover = [&](const Eigen::Vector2d& axis, double bottom, double top, double r) {
    Eigen::Vector2d direction;
    const double v = Visible(eye, *led, axis, bottom, top, r, led_radius_mm_, &direction);
    if (v < visible) {
      visible = v;
      away = direction;
    }
  };
  if (person) {
    cover({person->x(), person->z()}, 0, effects_.body_height_mm, effects_.body_radius_mm);
  }
  if (effects_.stands) {
    for (size_t k = 0; k < cameras_.size(); ++k) {
      if (static_cast<int>(k) == camera) continue;
      const Eigen::Vector3d& foot = cameras_[k].centre;
      cover({foot.x(), foot.z()}, 0, foot.y(), effects_.stand_radius_mm);
    }
  }
  if (visible < kLeastVisible) return false;
  if (visible < 1) {
    // The edge hides part of the blob: its centroid moves to the part left.
    const double shift = (1 - visible) * led_radius_mm_;
    *led += shift * Eigen::Vector3d(away.x(), 0, away.y());
  }
  return true;
}

void Detector::Emit(int camera, int slot, const Eigen::Vector3d& x) {
  const Camera& cam = cameras_[camera];
  const Eigen::Vector3d pc = cam.rotation * x + cam.translation;
  if (pc.z() < kNearMm) return;
  const double xn = pc.x() / pc.z(), yn = pc.y() / pc.z();
  if (!cam.field.Admits(xn, yn)) return;  // beyond what the lens images
  const Intrinsics& k = cam.lens;
  const Eigen::Vector2d uv = DistortToPixel(k, xn, yn);
  float nu, nv;
  rng_.Normal2(&nu, &nv);
  const float u = static_cast<float>(uv.x()) + noise_px_ * nu;
  const float v = static_cast<float>(uv.y()) + noise_px_ * nv;
  if (!(u >= 0 && v >= 0 && u < k.width && v < k.height)) return;
  if (dropout_ > 0 && rng_.Uniform() < dropout_) return;
  detections_.push_back({camera, slot, u, v, static_cast<float>(pc.z())});
  ++per_camera_[camera];
}

void Detector::Run(const std::vector<Eigen::Vector3d>& world, const std::vector<uint8_t>& lit,
                   const Eigen::Vector3d* person) {
  detections_.clear();
  std::fill(per_camera_.begin(), per_camera_.end(), 0);
  const int leds = static_cast<int>(first_.size()) - 1;
  const int cameras = static_cast<int>(cameras_.size());
  const bool occlusion = (person && effects_.operator_body) || effects_.stands;
  if (!effects_.operator_body) person = nullptr;
  for (int slot = 0; slot < leds; ++slot) {
    first_[slot] = static_cast<int>(detections_.size());
    if (!lit[slot]) continue;
    for (int c = 0; c < cameras; ++c) {
      Eigen::Vector3d x = world[slot];
      if (occlusion && !Occlude(c, person, &x)) continue;
      Emit(c, slot, x);
      for (const ScenePlane& mirror : effects_.mirrors) {
        // Both the LED and the camera must be in front of the shiny side.
        if ((world[slot] - mirror.point).dot(mirror.normal) <= 0 ||
            (cameras_[c].centre - mirror.point).dot(mirror.normal) <= 0)
          continue;
        if (rng_.Uniform() < mirror.rate) Emit(c, slot, Mirrored(mirror, world[slot]));
      }
    }
  }
  first_[leds] = static_cast<int>(detections_.size());
  if (effects_.mislabel_rate > 0 || effects_.merge_px > 0) Corrupt(leds);
}

void Detector::Corrupt(int leds) {
  if (effects_.merge_px > 0) {
    // Blobs of one camera closer than merge_px become one, at their middle,
    // with the id of either; sorted by u, only neighbours in u can merge.
    std::vector<int> order(detections_.size());
    std::iota(order.begin(), order.end(), 0);
    std::sort(order.begin(), order.end(), [&](int a, int b) {
      const Detection &p = detections_[a], &q = detections_[b];
      return p.camera != q.camera ? p.camera < q.camera : p.u < q.u;
    });
    const float reach = static_cast<float>(effects_.merge_px);
    std::vector<uint8_t> gone(detections_.size(), 0);
    for (size_t i = 0; i < order.size(); ++i) {
      Detection& a = detections_[order[i]];
      if (gone[order[i]]) continue;
      for (size_t j = i + 1; j < order.size(); ++j) {
        Detection& b = detections_[order[j]];
        if (b.camera != a.camera || b.u - a.u > reach) break;
        if (gone[order[j]] || std::abs(b.v - a.v) > reach ||
            std::hypot(b.u - a.u, b.v - a.v) > reach)
          continue;
        a.u = 0.5f * (a.u + b.u);
        a.v = 0.5f * (a.v + b.v);
        if (rng_.Uniform() < 0.5) a.slot = b.slot;
        gone[order[j]] = 1;
        --per_camera_[a.camera];
        break;
      }
    }
    size_t kept = 0;
    for (size_t i = 0; i < detections_.size(); ++i)
      if (!gone[i]) detections_[kept++] = detections_[i];
    detections_.resize(kept);
  }
  if (effects_.mislabel_rate > 0 && leds > 1) {
    for (Detection& d : detections_) {
      if (rng_.Uniform() >= effects_.mislabel_rate) continue;
      const int other = static_cast<int>(rng_.Uniform() * (leds - 1));
      d.slot = other < d.slot ? other : other + 1;
    }
  }
  GroupBySlot();
}

void Detector::Load(const std::vector<ZORImage>& images, const Scene& scene) {
  detections_.clear();
  std::fill(per_camera_.begin(), per_camera_.end(), 0);
  const int cameras = static_cast<int>(cameras_.size());
  for (const ZORImage& image : images) {
    const int slot = image.camera >= 0 && image.camera < cameras ? scene.SlotOf(image.led) : -1;
    if (slot < 0) continue;
    detections_.push_back({image.camera, slot, image.u, image.v, 0});
    ++per_camera_[image.camera];
  }
  GroupBySlot();
}

void Detector::GroupBySlot() {
  // Counting sort by slot; cameras keep their order within a slot.
  std::fill(first_.begin(), first_.end(), 0);
  for (const Detection& d : detections_) ++first_[d.slot + 1];
  for (size_t i = 1; i < first_.size(); ++i) first_[i] += first_[i - 1];
  std::vector<Detection> grouped(detections_.size());
  std::vector<int> next(first_.begin(), first_.end() - 1);
  for (const Detection& d : detections_) grouped[next[d.slot]++] = d;
  detections_ = std::move(grouped);
}

float BlobSize(double led_diameter_mm, double focal_px, float depth) {
  return std::max(1.5f, static_cast<float>(led_diameter_mm * focal_px) / depth);
}

float BlobIntensity(float depth) {
  const float r = 1500.0f / depth;
  return std::clamp(r * r, 0.05f, 1.0f);
}

}  // namespace zord
