// The rotation rings around a selected rigid body: a press on a ring (pick
// names 11..14) grabs a point on the ring's plane, a drag turns the body by
// the rotation between the grabbed and the current direction, a release
// keeps the rotation. Poses are in millimetres; the scene draws at `scale`.
#pragma once

#include "zorsock/geometry.h"

// The pointer as a ray in scene units, plus where it meets the object's depth.
struct PointerRay {
  Vec3 origin, direction;  // direction of unit length
  Vec3 eye;
  Vec3 point;              // pointer point at the object's depth
  bool orthographic = false;
  Vec3 viewDirection;      // eye towards centre, unit length
};

class Manipulator {
 public:
  enum State { kNone = 0, kRingX = 1, kRingY = 2, kRingZ = 3, kFree = 4 };

  // Puts the rings on `start` (the rotation starts from it; drags so far are
  // forgotten). `scale` maps millimetres to scene units.
  void Attach(const Pose& start, float scale);
  void Detach() { attached_ = false, state = kNone, active = false; }
  bool attached() const { return attached_; }

  bool Press(int name, const PointerRay& ray);
  bool Drag(const PointerRay& ray);
  bool Release();

  // live rotation x drag rotation x start pose, normalised.
  Pose CurrentPose() const;
  Vec3 Centre() const;  // scene units
  // Ring radius on screen: a fixed share of the distance from the eye.
  static float RingRadius(const Vec3& eye, const Vec3& centre);
  // The normal of the ring in `state` (free rotation: towards the pointer);
  // false when it cannot be formed.
  bool SelectionNormal(int forState, const PointerRay& ray, Vec3& normal) const;

  int state = kNone;
  bool active = false;
  Vec3 startDirection, currentDirection;
  Pose start, drag, live;

 private:
  bool GrabDirection(const PointerRay& ray, Vec3& direction) const;

  bool attached_ = false;
  float scale_ = 1;
  Vec3 normal_;
  bool onSphere_ = false;
};
