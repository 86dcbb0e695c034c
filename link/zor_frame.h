// The frame being assembled by the session: the record kinds of one server
// frame arrive separately (possibly on different ticks) and are gathered here
// until the frame is complete.
#pragma once

#include <cstdint>
#include <vector>

#include "zorsock/zorsock.h"

// Bits of ZORFrame::mask, one per record kind.
enum ZORKind : uint32_t { kMarkers = 1, kRigids = 2, kImages = 4, kDetectors = 8 };

class ZORFrame {
 public:
  virtual ~ZORFrame() = default;
  virtual void Clear();

  // Takes record kind `bit` for `frame` unless another frame is being
  // assembled already; true when taken.
  bool Accept(int32_t frame, uint32_t bit);

  uint32_t mask = 0;   // kinds that have arrived
  int32_t frame = -1;  // the frame being assembled, -1 when none
  std::vector<ZORMarker> markers;
  std::vector<ZORRigid> rigids;
  std::vector<ZORImage> images;
  std::vector<ZORDetector> detectors;
};
