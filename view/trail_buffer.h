// The marker trails kept in one vertex buffer object between frames: each
// repaint uploads only the positions recorded since the last one, and the
// buffer is rebuilt only when the history is reset, a slot starts a new
// trail or the history length changes. Each marker is drawn with a few
// glDrawArrays calls in its tracker's colour; fading is done by a texture
// (alpha by age), so nothing per position is recomputed per frame.
//
// On the software renderer the cost is per line drawn, and a marker at rest
// or far away puts many positions on one pixel. So the trail is drawn in
// blocks of kBlock frames, and a block whose path is short on screen is drawn
// through every k-th position, k chosen so that the path it replaces stays
// within a pixel of each drawn chord: the picture is the same, with far
// fewer lines.
#pragma once

#include <GL/gl.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "view/marker_store.h"
#include "view/view_camera.h"

class TrailBuffer {
 public:
  // Brings the buffer up to date with the store's trails and draws them;
  // `scale` turns session units into scene units. Context current.
  void Draw(const MarkerStore& store, float scale, const ViewCamera& camera);
  // The context that held the buffers is gone (Forget) or about to go (Release).
  void Forget();
  void Release();

  // What the last Draw uploaded and drew, in positions (a full rebuild
  // uploads all).
  size_t uploadedPositions() const { return uploaded_; }
  size_t drawnPositions() const { return drawn_; }

  static constexpr size_t kBlock = 64;  // frames; the largest stride

 private:
  // What the buffer holds of one marker slot's trail.
  struct Segment {
    uint64_t serial = 0;   // the trail it was filled from
    uint64_t synced = 0;   // the trail's pushes already uploaded
    std::deque<uint64_t> gaps;  // push numbers of frames the marker was unseen
    std::vector<float> blockPath;  // path length within each block, by block % blocks
  };
  // Scene units to pixels at a scene point, from the camera's last matrices.
  struct PixelScale {
    const ViewCamera* camera;
    float PixelsPerUnit(const Vec3& at) const;
  };
  void Allocate(size_t markers, size_t history);
  void Sync(size_t index, const MarkerTrail& trail);
  void Upload(size_t index, const MarkerTrail& trail, uint64_t from);
  // The newest `drawn` positions of a trail, run by unbroken run.
  void DrawTrail(size_t index, const MarkerTrail& trail, size_t drawn);
  void DrawRun(size_t index, const MarkerTrail& trail, uint64_t from, uint64_t last);
  size_t BlockStride(size_t index, const MarkerTrail& trail, uint64_t block) const;
  void DrawSpan(uint64_t first, uint64_t last, size_t stride, bool withLast);
  void DrawPiece(size_t slot, size_t count, size_t stride, uint64_t push);
  void EnsureFadeTexture();

  GLuint positions_ = 0;  // per marker `slots_ + 1` positions (the last repeats slot 0)
  GLuint slotIndex_ = 0;  // 0 .. slots_, the texture coordinate that gives a position's age
  GLuint fadeTexture_ = 0;
  size_t slots_ = 0;  // a multiple of kBlock, at least the history length
  std::vector<Segment> segments_;
  std::vector<float> staging_;
  size_t uploaded_ = 0, drawn_ = 0;
  // Set for one Draw.
  size_t base_ = 0;  // byte offset of the trail being drawn
  uint64_t newest_ = 0;
  GLenum mode_ = GL_LINE_STRIP;
  float fade_ = 0;  // frames; 0 when not fading
  float scale_ = 1;
  PixelScale pixels_{nullptr};
};
