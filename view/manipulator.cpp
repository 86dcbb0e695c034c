#include "view/manipulator.h"

#include <cmath>
#include <cstdio>

#include "zorsock/zorsock.h"

namespace {
constexpr float kSphereShare = 0.009f * 20;  // grab sphere radius per unit of eye distance

Vec3 Add(const Vec3& a, const Vec3& b, float s = 1) {
  return {a[0] + b[0] * s, a[1] + b[1] * s, a[2] + b[2] * s};
}

Pose Compose(const Pose& a, const Pose& b) {
  Pose out;
  mult_pp(a.data(), b.data(), out.data());
  normalize_p(out.data());
  return out;
}
}  // namespace

void Manipulator::Attach(const Pose& pose, float scale) {
  start = pose;
  drag.identity();
  live.identity();
  scale_ = scale;
  state = kNone;
  active = false;
  attached_ = true;
}

Vec3 Manipulator::Centre() const { return Vec3(start[0], start[1], start[2]).scale(scale_); }

float Manipulator::RingRadius(const Vec3& eye, const Vec3& centre) {
  return difference(centre, eye).length() * kSphereShare;
}

// The body turns about its own centre: the composed rotation is kept and the
// position stays where the body was. Deliberately so, rather than about the
// room's origin: an operator dragging a ring expects the body to turn in place.
Pose Manipulator::CurrentPose() const {
  Pose pose = Compose(live, Compose(drag, start));
  for (int i = 0; i < 3; ++i) pose[i] = start[i];
  return pose;
}

bool Manipulator::SelectionNormal(int forState, const PointerRay& ray, Vec3& normal) const {
  if (forState >= kRingX && forState <= kRingZ) {
    float m[16];
    const Pose pose = Compose(drag, start);  // the rotation part is all that is used
    convert_pm(pose.data(), m);
    const int column = forState - kRingX;
    normal.set(m[column * 4], m[column * 4 + 1], m[column * 4 + 2]);
  } else if (forState == kFree) {
    normal = ray.orthographic ? ray.viewDirection : difference(ray.point, ray.eye);
  } else {
    return false;
  }
  normal.setLength(1);
  return std::isfinite(normal.length()) && normal.length() > 0.5f;
}

bool Manipulator::GrabDirection(const PointerRay& ray, Vec3& direction) const {
  const Vec3 centre = Centre();
  Vec3 grab;
  if (onSphere_) {
    // Edge-on ring: the nearest point of the ray on a sphere around the body.
    const float radius = difference(ray.point, ray.eye).length() * kSphereShare;
    const Vec3 toCentre = difference(centre, ray.origin);
    const float along = dot(toCentre, ray.direction);
    const Vec3 closest = Add(ray.origin, ray.direction, along);
    const float off2 = dot(difference(closest, centre), difference(closest, centre));
    const float inside = radius * radius - off2;
    grab = inside > 0 ? Add(ray.origin, ray.direction, along - std::sqrt(inside)) : closest;
    // Keep only the part in the ring's plane so the ring turns about its normal.
    Vec3 d = difference(grab, centre);
    d = Add(d, normal_, -dot(d, normal_));
    direction = d.setLength(1);
    return direction.length() > 0.5f;
  }
  const float facing = dot(ray.direction, normal_);
  if (std::fabs(facing) < 1e-6f) return false;
  const float t = dot(difference(centre, ray.origin), normal_) / facing;
  if (!std::isfinite(t)) return false;
  grab = Add(ray.origin, ray.direction, t);
  direction = difference(grab, centre).setLength(1);
  return direction.length() > 0.5f;
}

bool Manipulator::Press(int name, const PointerRay& ray) {
  if (!attached_ || name < 11 || name > 14) return false;
  const int pressed = name - 10;
  if (!SelectionNormal(pressed, ray, normal_)) {
    std::printf("getselectionnormal failed...\n");
    std::fflush(stdout);
    return true;  // the press is still consumed
  }
  const double angle =
      std::acos(std::fmax(-1.0, std::fmin(1.0, dot(normal_, ray.direction)))) * 180.0 / M_PI;
  onSphere_ = std::fabs(angle - 90.0) <= 7.0;
  Vec3 direction;
  if (!GrabDirection(ray, direction)) {
    std::printf("ray_plane_project failed\n");
    std::fflush(stdout);
    return false;
  }
  state = pressed;
  active = true;
  startDirection = currentDirection = direction;
  live.identity();
  return true;
}

bool Manipulator::Drag(const PointerRay& ray) {
  if (state == kNone) return false;
  Vec3 direction;
  if (!GrabDirection(ray, direction)) return true;
  if (equals(direction, startDirection)) {
    currentDirection = direction;
    live.identity();
    return true;
  }
  if (cross(startDirection, direction).length() == 0) {
    std::printf("Released(): cross prod has no length...\n");
    std::fflush(stdout);
    return true;
  }
  currentDirection = direction;
  live = rotationBetween(startDirection, currentDirection, active);
  return true;
}

bool Manipulator::Release() {
  if (state == kNone) return false;
  if (!equals(startDirection, currentDirection)) {
    if (cross(startDirection, currentDirection).length() == 0) {
      std::printf("Released(): cross prod has no length...\n");
      std::fflush(stdout);
    } else {
      drag = Compose(rotationBetween(startDirection, currentDirection, active), drag);
    }
  }
  live.identity();
  state = kNone;
  return true;
}
