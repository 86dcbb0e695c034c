#include "zorsock/frame_assembler.h"

#include <algorithm>
#include <cstring>

namespace {

static_assert(sizeof(ZORCamera) * 64 < ZORFrameAssembler::kScratchBytes, "room for 64 cameras");

// Reads one record kind into `scratch`, then into `out`: a failure empties
// `out`, nothing received leaves it as it is. Returns the library's count.
template <typename Record>
int FetchKind(std::vector<unsigned char>& scratch, int (*get)(Record*, int),
              std::vector<Record>& out) {
  const int capacity = ZORFrameAssembler::kScratchBytes / static_cast<int>(sizeof(Record));
  int n = get(reinterpret_cast<Record*>(scratch.data()), capacity);
  if (n < 0) {
    out.clear();
  } else if (n > 0) {
    n = std::min(n, capacity);
    out.resize(n);
    std::memcpy(out.data(), scratch.data(), n * sizeof(Record));
  }
  return n;
}

// Fetches one kind for the frame being assembled. Records of a later frame
// than the pending one are dropped; only that they came is remembered in
// `next`, which becomes the pending frame once this one is delivered.
template <typename Record>
void GatherKind(uint32_t bit, int (*get)(Record*, int), std::vector<Record> ZORFrame::*kind,
                std::vector<unsigned char>& scratch, ZORFrame& pending, ZORFrame& next) {
  std::vector<Record> got;
  if (FetchKind(scratch, get, got) <= 0) return;
  const int32_t frame = got.front().frame;
  if (pending.Accept(frame, bit)) {
    pending.*kind = std::move(got);
  } else {
    next.Accept(frame, bit);
  }
}

}  // namespace

void ZORFrame::Clear() {
  mask = 0;
  frame = -1;
  markers.clear();
  rigids.clear();
  images.clear();
  detectors.clear();
}

bool ZORFrame::Accept(int32_t number, uint32_t bit) {
  if (frame != -1 && frame != number) return false;
  frame = number;
  mask |= bit;
  return true;
}

bool ZORFrameAssembler::Gather(int32_t& lastFrame, ZORFrame& next) {
  static constexpr struct {
    int code;
    uint32_t bit;
  } kSent[] = {{ZOR_SEND_MARKERS, kMarkers},
               {ZOR_SEND_RIGIDS, kRigids},
               {ZOR_SEND_IMAGES, kImages},
               {ZOR_SEND_DETECTORS, kDetectors}};
  uint32_t available = 0;
  for (const auto& kind : kSent) {
    int value = 0;
    if (zorGetIntegerv(kind.code, &value) > 0 && value != 0) available |= kind.bit;
  }

  int now = -1;
  zorGetIntegerv(ZOR_FRAME_NUMBER, &now);
  if (now < lastFrame) {  // the server restarted or rewound its clock
    ++resets;
    lastFrame = now;
    pending_.Clear();
  }

  const uint32_t wanted = available ^ pending_.mask;
  auto& s = scratch_;
  if (wanted & kMarkers) GatherKind(kMarkers, zorGetMarkers, &ZORFrame::markers, s, pending_, next);
  if (wanted & kRigids) GatherKind(kRigids, zorGetRigids, &ZORFrame::rigids, s, pending_, next);
  if (wanted & kImages) GatherKind(kImages, zorGetImages, &ZORFrame::images, s, pending_, next);
  if (wanted & kDetectors)
    GatherKind(kDetectors, zorGetDetectors, &ZORFrame::detectors, s, pending_, next);

  if (pending_.frame == -1 && lastFrame < now) {
    // The server moved on with nothing for us: deliver an empty frame.
    pending_.frame = lastFrame + 1;
    pending_.mask = available;
  }

  // Nothing assembled (frame -1) is never delivered: with no kinds sent, the
  // mask test alone would deliver it on every call once caught up.
  return pending_.frame != -1 &&
         (pending_.mask == available || (pending_.mask != 0 && pending_.frame < now));
}

void ZORFrameAssembler::Advance(const ZORFrame& next, std::vector<ZORCamera>& cameras) {
  FetchKind(scratch_, zorGetCameras, cameras);
  pending_.Clear();
  pending_.mask = next.mask;
  pending_.frame = next.frame;
}
