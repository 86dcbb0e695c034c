#include "view/view_camera.h"

#include <GL/gl.h>
#include <GL/glu.h>

#include <cmath>
#include <cstdio>

namespace {
constexpr double kDegree = M_PI / 180.0;

void Identity(float* m) {
  for (int i = 0; i < 16; ++i) m[i] = i % 5 == 0 ? 1.0f : 0.0f;
}
void Identity(double* m) {
  for (int i = 0; i < 16; ++i) m[i] = i % 5 == 0 ? 1.0 : 0.0;
}

Vec3 Add(const Vec3& a, const Vec3& b) { return {a[0] + b[0], a[1] + b[1], a[2] + b[2]}; }

// Rotations of a vector about the coordinate axes by `deg` degrees.
Vec3 AboutX(const Vec3& v, double deg) {
  const double c = std::cos(deg * kDegree), s = std::sin(deg * kDegree);
  return {v[0], static_cast<float>(v[1] * c - v[2] * s), static_cast<float>(v[1] * s + v[2] * c)};
}
Vec3 AboutY(const Vec3& v, double deg) {
  const double c = std::cos(deg * kDegree), s = std::sin(deg * kDegree);
  return {static_cast<float>(v[0] * c + v[2] * s), v[1], static_cast<float>(-v[0] * s + v[2] * c)};
}
Vec3 AboutZ(const Vec3& v, double deg) {
  const double c = std::cos(deg * kDegree), s = std::sin(deg * kDegree);
  return {static_cast<float>(v[0] * c - v[1] * s), static_cast<float>(v[0] * s + v[1] * c), v[2]};
}

// Keeps one part of the centre (horizontal or vertical) within `limit`.
void Bound(float* centre, const float* wanted, const int* axes, int count, float limit) {
  double wantedLength = 0, currentLength = 0;
  for (int i = 0; i < count; ++i) {
    wantedLength += double(wanted[axes[i]]) * wanted[axes[i]];
    currentLength += double(centre[axes[i]]) * centre[axes[i]];
  }
  wantedLength = std::sqrt(wantedLength);
  currentLength = std::sqrt(currentLength);
  if (wantedLength < limit) {
    for (int i = 0; i < count; ++i) centre[axes[i]] = wanted[axes[i]];
  } else if (currentLength > limit) {
    for (int i = 0; i < count; ++i) centre[axes[i]] *= static_cast<float>(limit / currentLength);
  }
}
}  // namespace

ViewCamera::ViewCamera() {
  Identity(fixedMatrix);
  Identity(modelView);
  Identity(projection);
}

void ViewCamera::Reset() { *this = ViewCamera(); }

void ViewCamera::Update() {
  eye = Add(eye, velocity.eye);
  wantedCentre = Add(wantedCentre, velocity.centre);
  rotation = Add(rotation, velocity.rotation);
  distance += velocity.distance;
  fov += velocity.fov;

  if (distance < minDistance) distance = minDistance;
  if (fov < 1) fov = 1;
  if (fov >= 90) fov = 90;
  if (distance > maxDistance) distance = maxDistance;

  const double a = (90.0 - rotation[0]) * kDegree, b = rotation[1] * kDegree;
  switch (mode) {
    case kLookAround:
      wantedCentre = Add(eye, Vec3(static_cast<float>(std::sin(a) * std::sin(b)),
                                   static_cast<float>(-std::cos(a)),
                                   static_cast<float>(-std::sin(a) * std::cos(b)))
                                  .scale(distance));
      ApplyBounds();
      break;
    case kOrbit:
      ApplyBounds();
      OrbitEye();
      if (orthographic) orthoDirection = difference(eye, centre);
      break;
    case kFromEye: {
      const Vec3 d = difference(eye, centre);
      distance = d.length();
      if (distance != 0) {
        rotation[0] = static_cast<float>(90.0 - std::acos(d[1] / distance) / kDegree);
        rotation[1] = static_cast<float>(std::atan2(-d[0], d[2]) / kDegree);
        rotation[2] = 0;
      }
      break;
    }
    default:
      break;
  }
  if (mode != kFixed) {
    up = AboutZ(AboutY(AboutX(Vec3(0, 1, 0), -rotation[0]), -rotation[1]), -rotation[2]);
  }
}

void ViewCamera::ApplyBounds() {
  static const int kHorizontal[] = {0, 2}, kVertical[] = {1};
  Bound(centre.v, wantedCentre.v, kHorizontal, 2, bounds[0]);
  Bound(centre.v, wantedCentre.v, kVertical, 1, bounds[1]);
}

void ViewCamera::OrbitEye() {
  const double a = (90.0 - rotation[0]) * kDegree, b = rotation[1] * kDegree;
  eye = Add(centre, Vec3(static_cast<float>(-std::sin(a) * std::sin(b)),
                         static_cast<float>(std::cos(a)),
                         static_cast<float>(std::sin(a) * std::cos(b)))
                        .scale(distance));
}

bool ViewCamera::SetDistance(float d) {
  if (!(d >= minDistance && d < maxDistance)) return false;
  distance = d;
  return true;
}

float ViewCamera::HalfHeight() const {
  return static_cast<float>(distance / std::tan(fov * kDegree));
}

void ViewCamera::SetProjection(int width, int height) const {
  const double aspect = double(width) / (height > 0 ? height : 1);
  if (orthographic) {
    const double h = HalfHeight();
    glOrtho(-h * aspect, h * aspect, -h, h, -farClip, farClip);
  } else {
    gluPerspective(fov, aspect, nearClip, farClip);
  }
}

void ViewCamera::SetOverlayProjection(int width, int height, int depth) {
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  const int w = width / 2, h = height / 2;
  glOrtho(-w, w, -h, h, -depth, depth);
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
}

void ViewCamera::SetUp(bool readBack) {
  glMatrixMode(GL_MODELVIEW);
  if (mode == kFixed) {
    glLoadMatrixf(fixedMatrix);
  } else {
    gluLookAt(eye[0], eye[1], eye[2], centre[0], centre[1], centre[2], up[0], up[1], up[2]);
  }
  if (!readBack) return;
  glGetDoublev(GL_MODELVIEW_MATRIX, modelView);
  glGetDoublev(GL_PROJECTION_MATRIX, projection);
  glGetIntegerv(GL_VIEWPORT, viewport);
}

bool ViewCamera::Unproject(double x, double y, Vec3& origin, Vec3& direction) const {
  double n[3], f[3];
  if (!gluUnProject(x, y, 0.0, modelView, projection, viewport, &n[0], &n[1], &n[2]) ||
      !gluUnProject(x, y, 1.0, modelView, projection, viewport, &f[0], &f[1], &f[2])) {
    return false;
  }
  direction.set(float(f[0] - n[0]), float(f[1] - n[1]), float(f[2] - n[2])).setLength(1);
  // A perspective ray starts at the eye; an orthographic one on the near plane.
  origin = orthographic || mode == kFixed ? Vec3(float(n[0]), float(n[1]), float(n[2])) : eye;
  return direction.length() > 0;
}

bool ViewCamera::Project(const Vec3& p, double& x, double& y, double& z) const {
  return gluProject(p[0], p[1], p[2], modelView, projection, viewport, &x, &y, &z) == GL_TRUE;
}

Vec3 ViewCamera::ViewDirection() const { return difference(centre, eye).setLength(1); }

float ViewCamera::PixelSize() const {
  const int h = viewport[3] > 0 ? viewport[3] : 1;
  const double visible = orthographic ? 2.0 * HalfHeight()
                                      : 2.0 * distance * std::tan(fov * kDegree / 2);
  return static_cast<float>(visible / h);
}

std::string ViewCamera::ToString() const {
  char text[256];
  std::snprintf(text, sizeof text, "   m:%d   r:%.4g   p[ %.4g %.4g %.4g]   rot[ %.4g %.4g %.4g]  fov:%.4g",
                mode, distance, eye[0], eye[1], eye[2], rotation[0], rotation[1], rotation[2], fov);
  return text;
}
