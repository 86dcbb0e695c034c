// Whole frames over the zor* calls. The record kinds of one server frame come
// separately, possibly over several polls: each poll asks the library which
// kinds the head frame has, gathers them into the frame being assembled and
// delivers that frame once every kind has come, or once the server has moved
// past it.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "zorsock/zorsock.h"

// Bits of ZORFrame::mask, one per record kind.
enum ZORKind : uint32_t { kMarkers = 1, kRigids = 2, kImages = 4, kDetectors = 8 };

// The frame being assembled.
struct ZORFrame {
  void Clear();
  // Takes record kind `bit` for `number` unless another frame is being
  // assembled already; true when taken.
  bool Accept(int32_t number, uint32_t bit);

  uint32_t mask = 0;   // kinds that have arrived
  int32_t frame = -1;  // the frame being assembled, -1 when none
  std::vector<ZORMarker> markers;
  std::vector<ZORRigid> rigids;
  std::vector<ZORImage> images;
  std::vector<ZORDetector> detectors;
};

class ZORFrameAssembler {
 public:
  static constexpr int kScratchBytes = 16384;  // what one fetch may read

  ZORFrameAssembler() : scratch_(kScratchBytes) {}

  // One poll. When a frame is complete it goes into `out`, which has the
  // members lastFrame (its number), markers, rigids, images, detectors and
  // cameras (the library's cameras at delivery); returns whether one did.
  // `out.lastFrame` also tells which frame comes next.
  template <typename Out>
  bool Fetch(Out& out);

  // Forgets the frame being assembled.
  void Clear() { pending_.Clear(); }

  int resets = 0;  // times the server's numbering fell below the last frame

 private:
  // Gathers for the pending frame; true when it is complete. Kinds of a later
  // frame are only noted in `next`, which is assembled after this one.
  bool Gather(int32_t& lastFrame, ZORFrame& next);
  // Fetches the cameras, then makes `next` the frame being assembled.
  void Advance(const ZORFrame& next, std::vector<ZORCamera>& cameras);

  ZORFrame pending_;
  std::vector<unsigned char> scratch_;  // every fetch reads into this first
};

template <typename Out>
bool ZORFrameAssembler::Fetch(Out& out) {
  ZORFrame next;
  if (!Gather(out.lastFrame, next)) return false;
  out.lastFrame = pending_.frame;
  out.markers = std::move(pending_.markers);
  out.rigids = std::move(pending_.rigids);
  out.images = std::move(pending_.images);
  out.detectors = std::move(pending_.detectors);
  Advance(next, out.cameras);
  return true;
}
