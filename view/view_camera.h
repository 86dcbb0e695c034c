// The camera of the 3D view: where the eye is, what it looks at, how fast
// each of those moves per frame, and the limits that keep it inside the
// capture space. Update() is plain arithmetic; SetProjection/SetUp talk to
// the current GL context and keep the matrices for unprojecting the pointer.
#pragma once

#include <string>

#include "zorsock/geometry.h"

class ViewCamera {
 public:
  enum Mode { kFixed = 0, kLookAround = 1, kOrbit = 2, kFromEye = 3 };

  struct Velocity {
    Vec3 eye, centre, rotation;
    float distance = 0, fov = 0;
  };

  ViewCamera();

  // Back to the defaults below.
  void Reset();
  // Applies the velocities, the clamps and the mode, then the up vector.
  void Update();
  // Moves the effective centre towards the wanted one within the bounds.
  void ApplyBounds();
  // The eye of orbit mode from the centre, distance and angles.
  void OrbitEye();
  // Direct distance change (wheel zoom): only minimum <= d < maximum is taken.
  bool SetDistance(float d);
  // Half of the visible height at the centre: distance / tan(fov), the
  // tangent of the whole angle as the projection has always used it.
  float HalfHeight() const;

  // GL: the projection for a w x h viewport (also used after gluPickMatrix),
  // and the model-view set-up that reads back the matrices and viewport.
  void SetProjection(int width, int height) const;
  // readBack false (picking) keeps the matrices of the last drawn frame.
  void SetUp(bool readBack = true);
  // Pixel-exact 2D projection for overlays.
  static void SetOverlayProjection(int width, int height, int depth = 1);

  // The ray through window pixel (x, y) (y from the bottom), from the
  // matrices of the last SetUp: false when they cannot be inverted.
  bool Unproject(double x, double y, Vec3& origin, Vec3& direction) const;
  // Window coordinates of a scene point (z is the depth 0..1).
  bool Project(const Vec3& point, double& x, double& y, double& z) const;
  // Direction from the eye towards the centre (unit length, or zero).
  Vec3 ViewDirection() const;
  // Pixel size in scene units at the centre's distance, for the rulers.
  float PixelSize() const;

  // "   m:2   r:10   p[ 0 0 10]   rot[ 0 0 0]  fov:60"
  std::string ToString() const;

  int mode = kOrbit;
  bool orthographic = false;
  Vec3 eye, centre, wantedCentre;
  Vec3 up{0, 1, 0};
  Vec3 rotation;  // elevation (about X), azimuth (about Y), roll (about Z), degrees
  float distance = 0;
  float fov = 60;
  float nearClip = 0.0001f;
  float farClip = 250;
  float minDistance = 0.0005f;
  float maxDistance = 100;
  Vec3 bounds{50, 25, 50};
  Velocity velocity;
  Vec3 rayOrigin, rayDirection, previousRay;
  Vec3 orthoDirection;  // eye minus centre, kept in orthographic orbit mode
  float fixedMatrix[16];
  double modelView[16];
  double projection[16];
  int viewport[4] = {0, 0, 1, 1};
};
