// Alignment of the calibrated volume in the room: the pending pose that
// moves the server's frame onto the one the operator chooses, from a rigid
// body (kind 1), three markers (kind 2) or three resting wand places (kind 3).
#include <algorithm>
#include <cmath>

#include "calib/alignment_notice.h"
#include "calib/calib_session.h"

namespace {

Vec3 Position(const ZORMarker& m) { return {m.x, m.y, m.z}; }

Vec3 Unit(Vec3 v) { return v.setLength(1.0f); }

}  // namespace

int32_t CalibSession::alignObjectTracker(int32_t kind) {
  if (kind == 1) return kPointTrackerId;
  if (kind == 3) return kWandTrackerId;
  return -1;
}

bool CalibSession::alignObjectPresent() const {
  const int32_t id = alignObjectTracker(alignKind);
  if (id < 0) return true;
  return std::any_of(trackers.begin(), trackers.end(),
                     [id](const auto& t) { return t->id == id && !t->markers.empty(); });
}

bool CalibSession::setAlignKind(int32_t kind) {
  alignKind = kind;
  ResetFrames();
  restartStillness();
  autoSnapshot = kind == 3;
  if (kind == 2 || kind == 3) alignIndices = {0, 1, 2};
  flipUp_ = false;
  NoteAlignment(*this);
  return alignObjectPresent();
}

void CalibSession::showAlignObjectOnly(bool on) {
  const int32_t keep = alignObjectTracker(alignKind);
  if (keep < 0 || !connected()) return;
  for (auto& t : trackers)
    if (t->isRigid() && t->id != keep && !t->markers.empty()) t->Update(!on);
}

// The frames already received when the operator is asked for a point show
// the wand where it rested before.
void CalibSession::restartStillness() {
  int32_t newest = -1;
  if (connected() && zorGetIntegerv(ZOR_FRAME_NUMBER, &newest) != 1) newest = -1;
  stillness.Reset(newest);
}

int CalibSession::startAlignment() {
  if (!connected() || capturing || calibrating) return 0;
  if (!aligning) {
    aligning = true;
    restartStillness();
    showAlignObjectOnly(true);
    NoteAlignment(*this);
    return 1;
  }
  aligning = false;
  aligned = true;
  showAlignObjectOnly(false);
  NoteAlignment(*this);
  return -1;
}

bool CalibSession::computeAlignment() {
  if (alignKind == 1) {
    const ZORRigid* only = nullptr;
    int valid = 0;
    for (const ZORRigid& r : rigids)
      if (r.cond > 0) ++valid, only = &r;
    if (valid != 1) return false;
    std::copy(only->pose, only->pose + 7, pose.data());
    invert_p(pose.data());
    normalize_p(pose.data());
    haveAligned_ = false;  // nothing to flip: the body's own frame is the world's
    return true;
  }
  if (alignKind != 2 && alignKind != 3) return false;
  alignPoints = alignKind == 2 ? markers : alignWandPoints;
  if (alignIndices.size() < 2) return false;
  std::vector<ZORMarker> selected;
  for (int32_t index : alignIndices)
    if (index >= 0 && static_cast<size_t>(index) < alignPoints.size())
      selected.push_back(alignPoints[index]);
  if (selected.size() < 3) return false;
  if (!alignWithCheck(selected[0], selected[1], selected[2])) return false;
  if (alignKind == 3) alignIndices.clear();  // the next wand alignment starts anew
  return true;
}

bool CalibSession::alignFromPoints(const ZORMarker& p0, const ZORMarker& p1, const ZORMarker& p2,
                                   bool flip) {
  // One valid point is enough to go on.
  if (p0.cond <= 0 && p1.cond <= 0 && p2.cond <= 0) return false;
  const Vec3 P0 = Position(p0), P1 = Position(p1), P2 = Position(p2);
  const Vec3 x = Unit(difference(P1, P0));
  const Vec3 b = Unit(flip ? difference(P2, P0) : difference(P0, P2));
  const Vec3 y = Unit(cross(x, b));
  const Vec3 z = Unit(cross(x, y));
  // Rows X, Y, Z: takes v to (X.v, Y.v, Z.v).
  const float m[16] = {x.x(), y.x(), z.x(), 0, x.y(), y.y(), z.y(), 0,
                       x.z(), y.z(), z.z(), 0, 0,     0,     0,     1};
  Pose r;
  convert_mp(m, r.data());
  normalize_p(r.data());
  Pose t;
  t[0] = -P0.x(), t[1] = -P0.y(), t[2] = -P0.z();
  mult_pp(r.data(), t.data(), pose.data());
  normalize_p(pose.data());

  lastAligned_[0] = p0, lastAligned_[1] = p1, lastAligned_[2] = p2;
  lastFlip_ = flip;
  haveAligned_ = true;
  return true;
}

bool CalibSession::alignWithCheck(const ZORMarker& p0, const ZORMarker& p1, const ZORMarker& p2) {
  if (!alignFromPoints(p0, p1, p2, false)) return false;
  // A camera above the floor counts only after one below it: the order of
  // the cameras decides.
  int vote = 0;
  for (const ZORCamera& camera : cameras) {
    if (camera.cond <= 0) continue;
    float aligned[7];
    mult_pp(pose.data(), camera.pose, aligned);
    if (aligned[1] < 0 && vote != -1) vote = 1;
    else if (aligned[1] > 0 && vote != 0) vote = -1;
  }
  const bool flip = (vote == 1) != flipUp_;
  if (flip) return alignFromPoints(p0, p1, p2, true);
  return true;
}

bool CalibSession::flipAlignment() {
  if (!haveAligned_) return false;
  flipUp_ = !flipUp_;
  return alignFromPoints(lastAligned_[0], lastAligned_[1], lastAligned_[2], !lastFlip_);
}

void CalibSession::clearAlignPoints() {
  alignWandPoints.clear();
  restartStillness();
  if (alignKind == 3) alignIndices = {0, 1, 2};
  NoteAlignment(*this);
}


StillnessDetector::Step CalibSession::detectStillness() {
  const ZORRigid* only = nullptr;
  int valid = 0;
  for (const ZORRigid& r : rigids)
    if (r.cond > 0) ++valid, only = &r;
  if (valid != 1) return {};
  StillnessDetector::Step step = stillness.Observe(*only, autoSnapshot);
  if (step.capture && alignKind == 0) step.capture = false;
  if (!step.capture) return step;
  // Back into the server's frame: the rigid is shown with the pending pose.
  Pose back = pose;
  invert_p(back.data());
  float m[16];
  convert_pm(back.data(), m);
  float at[3];
  mult_mv3_v3(m, only->pose, at);
  ZORMarker point{only->id, only->frame, at[0] + m[12], at[1] + m[13], at[2] + m[14], only->cond,
                  only->flag};
  alignWandPoints.push_back(point);
  NoteAlignment(*this);
  return step;
}
