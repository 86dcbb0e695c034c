#include "calib/stillness_detector.h"

#include <cmath>

StillnessDetector::Step StillnessDetector::Observe(const ZORRigid& rigid, bool automatic) {
  Step step;
  if (rigid.frame < lastSeen_) skipThrough_ = -1;  // the server restarted its numbering
  lastSeen_ = rigid.frame;
  if (rigid.frame <= skipThrough_) return step;
  if (referenceFrame == -1) {
    reference = rigid;
    referenceFrame = rigid.frame;
  }
  if (rigid.frame == referenceFrame) return step;
  const float dx = rigid.pose[0] - reference.pose[0];
  const float dy = rigid.pose[1] - reference.pose[1];
  const float dz = rigid.pose[2] - reference.pose[2];
  if (std::sqrt(dx * dx + dy * dy + dz * dz) > kMovement) {
    step.moved = true;
    reference = rigid;
    referenceFrame = rigid.frame;
    capturedHere = false;
  } else if ((requested || automatic) && !capturedHere &&
             rigid.frame - referenceFrame >= kStillFrames) {
    step.capture = true;
    capturedHere = true;
    requested = false;
  }
  step.waiting = capturedHere;
  return step;
}

void StillnessDetector::Reset(int32_t madeBefore) {
  skipThrough_ = madeBefore;
  lastSeen_ = -1;
  referenceFrame = -1;
  capturedHere = false;
  requested = false;
}
