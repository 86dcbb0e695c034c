#include "link/zor_frame.h"

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
