// Buffer objects are core since GL 1.5; the system's libGL exports their entry
// points, so the scene layer calls them directly (it stays free of Qt).
#define GL_GLEXT_PROTOTYPES 1
#include "view/trail_buffer.h"

#include <GL/glext.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "view/gl_draw.h"

namespace {
constexpr size_t kVertexBytes = 3 * sizeof(float);
constexpr int kFadeTexels = 256;

const void* Offset(size_t bytes) { return reinterpret_cast<const void*>(bytes); }
}  // namespace

void TrailBuffer::Forget() {
  positions_ = slotIndex_ = fadeTexture_ = 0;
  slots_ = 0;
  segments_.clear();
}

void TrailBuffer::Release() {
  if (positions_) glDeleteBuffers(1, &positions_);
  if (slotIndex_) glDeleteBuffers(1, &slotIndex_);
  if (fadeTexture_) glDeleteTextures(1, &fadeTexture_);
  Forget();
}

// Room for `markers` trails of `slots` positions each, plus one position per
// trail that repeats its slot 0, so that a line wrapping round the ring
// joins its newer part without a gap.
void TrailBuffer::Allocate(size_t markers, size_t history) {
  const size_t slots = (history + kBlock - 1) / kBlock * kBlock;
  if (markers <= segments_.size() && slots == slots_) return;
  markers = std::max(markers, segments_.size());
  slots_ = slots;
  segments_.assign(markers, Segment{});  // everything is uploaded again
  for (Segment& segment : segments_) segment.blockPath.assign(slots / kBlock, 0.0f);
  glBindBuffer(GL_ARRAY_BUFFER, positions_);
  glBufferData(GL_ARRAY_BUFFER, markers * (slots + 1) * kVertexBytes, nullptr, GL_DYNAMIC_DRAW);
  std::vector<float> index(slots + 1);
  for (size_t i = 0; i < index.size(); ++i) index[i] = static_cast<float>(i);
  glBindBuffer(GL_ARRAY_BUFFER, slotIndex_);
  glBufferData(GL_ARRAY_BUFFER, index.size() * sizeof(float), index.data(), GL_STATIC_DRAW);
}

// Push number q of a trail lives in slot q % slots_ of its segment.
void TrailBuffer::Sync(size_t index, const MarkerTrail& trail) {
  Segment& segment = segments_[index];
  const uint64_t oldest = trail.pushed - std::min<uint64_t>(trail.count, slots_);
  if (segment.serial != trail.serial || segment.synced > trail.pushed || segment.synced < oldest) {
    segment.serial = trail.serial;
    segment.gaps.clear();
    Upload(index, trail, oldest);
  } else if (segment.synced < trail.pushed) {
    Upload(index, trail, segment.synced);
  }
  while (!segment.gaps.empty() && segment.gaps.front() < oldest) segment.gaps.pop_front();
}

void TrailBuffer::Upload(size_t index, const MarkerTrail& trail, uint64_t from) {
  Segment& segment = segments_[index];
  const size_t base = index * (slots_ + 1) * kVertexBytes, blocks = slots_ / kBlock;
  const float gap = std::numeric_limits<float>::quiet_NaN();
  Vec3 previous = trail.pushed - from < trail.count ? trail.Back(trail.pushed - from) : Vec3(gap, gap, gap);
  for (uint64_t q = from; q < trail.pushed;) {
    const size_t slot = q % slots_;
    const uint64_t n = std::min<uint64_t>(trail.pushed - q, slots_ - slot);
    staging_.clear();
    for (uint64_t k = q; k < q + n; ++k) {
      const Vec3& p = trail.Back(trail.pushed - 1 - k);
      float& path = segment.blockPath[(k / kBlock) % blocks];
      if (k % kBlock == 0) path = 0;
      if (std::isnan(p[0])) {  // unseen: the trail breaks here, the slot is never drawn
        segment.gaps.push_back(k);
        staging_.insert(staging_.end(), {0.0f, 0.0f, 0.0f});
      } else {
        if (!std::isnan(previous[0])) path += difference(p, previous).length();
        staging_.insert(staging_.end(), {p[0], p[1], p[2]});
      }
      previous = p;
    }
    glBufferSubData(GL_ARRAY_BUFFER, base + slot * kVertexBytes, staging_.size() * sizeof(float),
                    staging_.data());
    if (slot == 0) glBufferSubData(GL_ARRAY_BUFFER, base + slots_ * kVertexBytes, kVertexBytes, staging_.data());
    q += n;
  }
  uploaded_ += trail.pushed - from;
  segment.synced = trail.pushed;
}

void TrailBuffer::EnsureFadeTexture() {
  if (fadeTexture_) return;
  // Alpha falls linearly from full at s = 0 (newest) to nothing at s = 1.
  GLubyte ramp[kFadeTexels];
  for (int i = 0; i < kFadeTexels; ++i) {
    ramp[i] = static_cast<GLubyte>(std::lround(255.0 * (1.0 - (i + 0.5) / kFadeTexels)));
  }
  glGenTextures(1, &fadeTexture_);
  glBindTexture(GL_TEXTURE_1D, fadeTexture_);
  glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
  glTexImage1D(GL_TEXTURE_1D, 0, GL_ALPHA, kFadeTexels, 0, GL_ALPHA, GL_UNSIGNED_BYTE, ramp);
  glTexParameteri(GL_TEXTURE_1D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_1D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_1D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
}

float TrailBuffer::PixelScale::PixelsPerUnit(const Vec3& at) const {
  // The clip w of the point (its depth in perspective, 1 in orthographic)
  // and the projection's scale give the size of a scene unit on screen.
  const double* m = camera->modelView;
  const double* p = camera->projection;
  double eye[4];
  for (int r = 0; r < 4; ++r) eye[r] = m[r] * at[0] + m[4 + r] * at[1] + m[8 + r] * at[2] + m[12 + r];
  const double w = p[3] * eye[0] + p[7] * eye[1] + p[11] * eye[2] + p[15] * eye[3];
  if (!(w > 0)) return std::numeric_limits<float>::infinity();  // at or behind the eye
  const double sx = std::abs(p[0]) * camera->viewport[2], sy = std::abs(p[5]) * camera->viewport[3];
  return static_cast<float>(std::max(sx, sy) / (2 * w));
}

void TrailBuffer::Draw(const MarkerStore& store, float scale, const ViewCamera& camera) {
  uploaded_ = drawn_ = 0;
  const std::vector<MarkerTrail>& trails = store.trails();
  if (store.brush() == kBrushNone || trails.empty()) return;
  if (!positions_) {
    glGenBuffers(1, &positions_);
    glGenBuffers(1, &slotIndex_);
  }
  Allocate(trails.size(), static_cast<size_t>(store.maxHistory()));
  glBindBuffer(GL_ARRAY_BUFFER, positions_);
  for (size_t i = 0; i < trails.size(); ++i) Sync(i, trails[i]);

  const bool fading = store.fade();
  const size_t fadeFrames = fading ? static_cast<size_t>(store.fadeCount()) : slots_;
  mode_ = store.brush() == kBrushLines ? GL_LINE_STRIP : GL_POINTS;
  fade_ = fading ? static_cast<float>(fadeFrames) : 0.0f;
  scale_ = scale;
  pixels_.camera = &camera;
  glPushAttrib(GL_ENABLE_BIT | GL_TEXTURE_BIT | GL_CURRENT_BIT | GL_POINT_BIT);
  glPushClientAttrib(GL_CLIENT_VERTEX_ARRAY_BIT);
  glPushMatrix();
  glScalef(scale, scale, scale);
  glPointSize(2);
  glEnableClientState(GL_VERTEX_ARRAY);
  if (fading) {
    EnsureFadeTexture();
    glEnable(GL_TEXTURE_1D);
    glBindTexture(GL_TEXTURE_1D, fadeTexture_);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
    glEnableClientState(GL_TEXTURE_COORD_ARRAY);
    glMatrixMode(GL_TEXTURE);
    glPushMatrix();
    glMatrixMode(GL_MODELVIEW);
  }
  for (size_t i = 0; i < trails.size(); ++i) {
    const MarkerTrail& t = trails[i];
    if (t.count < 2) continue;
    const Colour c = gldraw::TrackerColour(t.id >> 12);
    glColor4f(c.v[0], c.v[1], c.v[2], 0.8f);
    base_ = i * (slots_ + 1) * kVertexBytes;
    newest_ = t.pushed - 1;
    DrawTrail(i, t, std::min({static_cast<size_t>(t.count), slots_, fadeFrames}));
  }
  if (fading) {
    glMatrixMode(GL_TEXTURE);
    glPopMatrix();
    glMatrixMode(GL_MODELVIEW);
  }
  glPopMatrix();
  glBindBuffer(GL_ARRAY_BUFFER, 0);
  glPopClientAttrib();
  glPopAttrib();
}

// Runs between the frames the marker was unseen, newest first.
void TrailBuffer::DrawTrail(size_t index, const MarkerTrail& trail, size_t drawn) {
  if (drawn == 0) return;
  const uint64_t first = trail.pushed - drawn;
  uint64_t end = trail.pushed;
  const std::deque<uint64_t>& gaps = segments_[index].gaps;
  for (auto g = gaps.rbegin(); g != gaps.rend() && *g >= first; ++g) {
    if (*g + 1 < end) DrawRun(index, trail, *g + 1, end - 1);
    end = *g;
  }
  if (first < end) DrawRun(index, trail, first, end - 1);
}

// Push numbers first..last (all seen): whole blocks with their stride, the
// partial blocks at either end position by position; blocks of one stride
// are drawn together. For lines each span starts where the last one ended.
void TrailBuffer::DrawRun(size_t index, const MarkerTrail& trail, uint64_t first, uint64_t last) {
  if (first == last) {
    if (mode_ == GL_POINTS) DrawSpan(first, last, 1, true);
    return;
  }
  uint64_t from = first;
  while (from < last) {
    const uint64_t blockEnd = (from / kBlock + 1) * kBlock;
    uint64_t to = std::min(blockEnd, last);
    size_t stride = 1;
    if (from % kBlock == 0 && blockEnd <= last) {
      stride = BlockStride(index, trail, from / kBlock);
      while (to + kBlock <= last && BlockStride(index, trail, to / kBlock) == stride) to += kBlock;
    }
    DrawSpan(from, to, stride, to == last);
    from = to;
  }
}

// The largest power of two k (at most kBlock) for which k frames of the
// block's path, at its mean speed, span at most two pixels: every point of
// such a path lies within a pixel of the chord drawn in its place.
size_t TrailBuffer::BlockStride(size_t index, const MarkerTrail& trail, uint64_t block) const {
  const Segment& segment = segments_[index];
  const uint64_t start = block * kBlock;
  const Vec3& at = trail.Back(trail.pushed - 1 - start);
  const float pixels = segment.blockPath[block % segment.blockPath.size()] * scale_ *
                       pixels_.PixelsPerUnit(Vec3(at[0] * scale_, at[1] * scale_, at[2] * scale_));
  size_t k = kBlock;
  while (k > 1 && !(k * pixels <= 2 * kBlock)) k /= 2;
  return k;
}

// Push numbers first, first + stride, ..., last (last - first a multiple of
// the stride, which divides slots_); split where the ring wraps. The last
// position is left to the next span unless `withLast` (points drawn once).
void TrailBuffer::DrawSpan(uint64_t first, uint64_t last, size_t stride, bool withLast) {
  const bool lines = mode_ == GL_LINE_STRIP;
  if (!withLast && !lines) last -= stride;
  if (last < first) return;
  const size_t slot = first % slots_;
  if (slot + (last - first) <= slots_) {  // slot_ itself repeats slot 0
    DrawPiece(slot, (last - first) / stride + 1, stride, first);
    return;
  }
  const uint64_t wrap = first + (slots_ - slot);  // the push in slot 0
  DrawPiece(slot, (wrap - first) / stride + (lines ? 1 : 0), stride, first);
  DrawPiece(0, (last - wrap) / stride + 1, stride, wrap);
}

// `count` positions from `slot`, every `stride`-th, the first being push
// number `push`. With fading, the texture coordinate (the slot index)
// becomes age / fade through the texture matrix.
void TrailBuffer::DrawPiece(size_t slot, size_t count, size_t stride, uint64_t push) {
  if (count == 0) return;
  glVertexPointer(3, GL_FLOAT, static_cast<GLsizei>(stride * kVertexBytes), Offset(base_ + slot * kVertexBytes));
  if (fade_ > 0) {
    glBindBuffer(GL_ARRAY_BUFFER, slotIndex_);
    glTexCoordPointer(1, GL_FLOAT, static_cast<GLsizei>(stride * sizeof(float)), Offset(slot * sizeof(float)));
    glBindBuffer(GL_ARRAY_BUFFER, positions_);
    const uint64_t age = newest_ - push;
    glMatrixMode(GL_TEXTURE);
    glLoadIdentity();
    glTranslatef(static_cast<float>(age + slot) / fade_, 0, 0);
    glScalef(-1 / fade_, 1, 1);
    glMatrixMode(GL_MODELVIEW);
  }
  glDrawArrays(mode_, 0, static_cast<GLsizei>(count));
  drawn_ += count;
}
