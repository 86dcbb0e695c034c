// StillnessDetector: notices when the one rigid in view (the wand, or the
// alignment body) has come to rest and says when to take its position as an
// alignment point. A point is taken once per resting place: the object must
// move away by more than kMovement before the next one can be taken.
#pragma once

#include <cstdint>

#include "zorsock/zorsock.h"

class StillnessDetector {
 public:
  // In the positions' units (the session's scale: metres at 0.001).
  static constexpr float kMovement = 0.05f;
  // Frames the object has to rest before its position is taken.
  static constexpr int32_t kStillFrames = 960;

  struct Step {
    bool moved = false;    // the object left its reference place
    bool capture = false;  // take the rigid's position now
    bool waiting = false;  // a point was taken here; waiting for the object to move
  };

  // One frame's look at `rigid` (valid, the only one in view). `automatic`:
  // take points without being asked.
  Step Observe(const ZORRigid& rigid, bool automatic);
  // Forgets the reference place (a new alignment or a new kind). Frames
  // numbered up to `madeBefore` (the newest received when the operator was
  // asked for a point) are passed over: a client running behind would
  // otherwise take the place where the object rested before anyone moved it.
  void Reset(int32_t madeBefore = -1);

  bool requested = false;     // a snapshot asked for by hand, taken at the next rest
  bool capturedHere = false;  // a point was taken at the current resting place
  int32_t referenceFrame = -1;
  ZORRigid reference{};

 private:
  int32_t skipThrough_ = -1;
  int32_t lastSeen_ = -1;
};
