#include "zorsock/transform.h"

namespace zorsock {

namespace {

constexpr std::array<float, 7> kIdentity{0, 0, 0, 1, 0, 0, 0};

}  // namespace

bool ClientTransform::identity() const { return scale == 1.0f && pose == kIdentity; }

namespace {

// scale, then rotate (mult_mv3_v3 rotates only), then translate.
void MovePoint(const float* m16, float scale, const float* t, float* xyz) {
  const float scaled[3] = {xyz[0] * scale, xyz[1] * scale, xyz[2] * scale};
  mult_mv3_v3(m16, scaled, xyz);
  for (int i = 0; i < 3; ++i) xyz[i] += t[i];
}

}  // namespace

void ClientTransform::ApplyToPoint(float* xyz) const {
  float m[16];
  convert_pm(pose.data(), m);
  MovePoint(m, scale, pose.data(), xyz);
}

void ClientTransform::ApplyToPose(float* pose7) const {
  float scaled[7] = {pose7[0] * scale, pose7[1] * scale, pose7[2] * scale,
                     pose7[3], pose7[4], pose7[5], pose7[6]};
  mult_pp(pose.data(), scaled, pose7);
}

void ClientTransform::Apply(ZORMarker* records, int count) const {
  if (identity()) return;
  float m[16];
  convert_pm(pose.data(), m);
  for (int i = 0; i < count; ++i) {
    float xyz[3] = {records[i].x, records[i].y, records[i].z};
    MovePoint(m, scale, pose.data(), xyz);
    records[i].x = xyz[0];
    records[i].y = xyz[1];
    records[i].z = xyz[2];
  }
}

void ClientTransform::Apply(ZORRigid* records, int count) const {
  if (identity()) return;
  for (int i = 0; i < count; ++i) ApplyToPose(records[i].pose);
}

void ClientTransform::Apply(ZORCamera* records, int count) const {
  if (identity()) return;
  for (int i = 0; i < count; ++i) ApplyToPose(records[i].pose);
}

void ClientTransform::ToServer(float* xyz) const {
  if (scale == 0.0f) return;  // zorScale refuses 0; keep the values finite anyway
  for (int i = 0; i < 3; ++i) xyz[i] /= scale;
}

}  // namespace zorsock
