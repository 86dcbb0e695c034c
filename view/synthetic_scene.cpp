#include "view/synthetic_scene.h"

#include <cmath>

#include "link/zortk.h"

namespace {
// Camera at `p` looking at `target` (its -Z axis), world up +Y.
void LookAt(float* pose, float px, float py, float pz, float tx, float ty, float tz) {
  Vec3 back(px - tx, py - ty, pz - tz);
  back.setLength(1);
  Vec3 right = cross(Vec3(0, 1, 0), back);
  right.setLength(1);
  const Vec3 up = cross(back, right);
  float m[16] = {right[0], right[1], right[2], 0, up[0], up[1], up[2], 0,
                 back[0],  back[1],  back[2],  0, px,    py,    pz,    1};
  convert_mp(m, pose);
  normalize_p(pose);
}
}  // namespace

void SyntheticScene::Fill(ZOR& session, int frame) const {
  session.frequency = frequency;
  session.markers.clear();
  for (int i = 0; i < markers; ++i) {
    const double a = i * 0.35 + frame * 0.002;
    ZORMarker m{};
    m.id = i;
    m.frame = frame;
    m.x = static_cast<float>(std::cos(a) * (600 + 8 * (i % 64)));
    m.y = static_cast<float>(200 + 12 * (i % 128));
    m.z = static_cast<float>(std::sin(a) * (600 + 8 * (i % 64)));
    m.cond = 1 + (i % 7);
    m.flag = 3;
    session.markers.push_back(m);
  }
  session.rigids.clear();
  for (int i = 0; i < rigids; ++i) {
    const double a = 2 * M_PI * i / std::max(rigids, 1);
    ZORRigid r{};
    r.id = 10 + i;
    r.frame = frame;
    float axisAngle[7] = {static_cast<float>(1800 * std::cos(a)), 900,
                          static_cast<float>(1800 * std::sin(a)), 1, 0, 0, 0};
    const double turn = a / 2;
    axisAngle[3] = static_cast<float>(std::cos(turn));
    axisAngle[5] = static_cast<float>(std::sin(turn));
    std::copy(axisAngle, axisAngle + 7, r.pose);
    r.cond = 0.5f;
    r.flag = 4;
    session.rigids.push_back(r);
  }
  session.cameras.clear();
  session.detectors.clear();
  session.images.clear();
  for (int i = 0; i < cameras; ++i) {
    const double a = 2 * M_PI * i / std::max(cameras, 1);
    ZORCamera c{};
    c.id = i;
    const float px = static_cast<float>(3500 * std::cos(a)), pz = static_cast<float>(3500 * std::sin(a));
    LookAt(c.pose, px, 2600 + 200 * (i % 2), pz, 0, 800, 0);
    c.cond = i >= cameras - uncalibrated ? -1.0f : 0.3f;
    session.cameras.push_back(c);
    ZORDetector d{};
    d.camera = i;
    d.frame = frame;
    d.width = 1280;
    d.height = 1024;
    d.focal = 1400;
    d.exposure = 500;
    d.temperature = 40 + i % 5;
    d.detections = markers / 2;
    session.detectors.push_back(d);
    for (int k = 0; k < markers / 2; ++k) {
      ZORImage im{};
      im.camera = i;
      im.frame = frame;
      im.led = k;
      im.u = static_cast<float>(640 + 500 * std::cos(k * 0.7 + i));
      im.v = static_cast<float>(512 + 400 * std::sin(k * 1.3 + i));
      im.size = 4 + k % 5;
      im.intensity = 0.5f + 0.5f * ((k % 3) / 2.0f);
      session.images.push_back(im);
    }
  }
}
