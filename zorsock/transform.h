// The caller's scale and pose (zorScale, zorLoadPose): positions received from
// the server are multiplied by the scale and then moved by the pose; tracker
// geometry sent to the server is divided by the scale.
#pragma once

#include <array>

#include "zorsock/zorsock.h"

namespace zorsock {

struct ClientTransform {
  float scale = 1.0f;
  std::array<float, 7> pose{0, 0, 0, 1, 0, 0, 0};

  bool identity() const;
  void ApplyToPoint(float* xyz) const;
  void ApplyToPose(float* pose7) const;
  void Apply(ZORMarker* records, int count) const;
  void Apply(ZORRigid* records, int count) const;
  void Apply(ZORCamera* records, int count) const;
  // A tracker's local marker position, from the caller's units to the server's.
  void ToServer(float* xyz) const;
};

}  // namespace zorsock
