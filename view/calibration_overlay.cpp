#include "view/calibration_overlay.h"

#include <GL/gl.h>
#include <GL/glu.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include "view/gl_draw.h"

const ZORCoverage* CalibrationOverlay::CoverageOf(int32_t camera) const {
  for (const ZORCoverage& c : coverage)
    if (c.camera == camera) return &c;
  return nullptr;
}

const ZORCameraWatch* CalibrationOverlay::MovedOf(int32_t camera) const {
  for (const ZORCameraWatch& w : moved)
    if (w.camera == camera && w.moved) return &w;
  return nullptr;
}

std::vector<std::string> CalibrationOverlay::Alerts() const {
  std::vector<std::string> lines;
  for (const ZORCameraWatch& w : moved)
    if (w.moved) lines.push_back("Camera " + std::to_string(w.camera + 1) + " may have moved");
  return lines;
}

namespace overlay {
namespace {

void Rectangle(GLenum mode, float x0, float y0, float x1, float y1) {
  glBegin(mode);
  glVertex2f(x0, y0), glVertex2f(x1, y0), glVertex2f(x1, y1), glVertex2f(x0, y1);
  glEnd();
}

bool CellSet(const ZORCoverage& c, int row, int column) {
  const int bit = row * ZOR_COVERAGE_GRID + column;
  return (c.cells[bit / 32] >> (bit % 32)) & 1u;
}

// The grid over the picture, cells holding samples filled: green for a camera
// the solver takes, amber for one it would refuse so far (red frame).
void DrawCoverage(const ZORCoverage& c, const ZORCoverageSummary& s, float sx, float sy, float sw,
                  float sh) {
  const int n = ZOR_COVERAGE_GRID;
  const float cw = sw / n, ch = sh / n;
  if (c.ready) {
    glColor4f(0.2f, 0.8f, 0.3f, 0.28f);
  } else {
    glColor4f(0.95f, 0.6f, 0.1f, 0.28f);
  }
  for (int row = 0; row < n; ++row) {
    for (int column = 0; column < n; ++column) {
      if (!CellSet(c, row, column)) continue;
      const float top = sy + sh - row * ch;  // row 0 at the image top
      Rectangle(GL_QUADS, sx + column * cw, top - ch, sx + (column + 1) * cw, top);
    }
  }
  glColor4f(0.5f, 0.5f, 0.6f, 0.35f);
  glBegin(GL_LINES);
  for (int k = 1; k < n; ++k) {
    glVertex2f(sx + k * cw, sy), glVertex2f(sx + k * cw, sy + sh);
    glVertex2f(sx, sy + k * ch), glVertex2f(sx + sw, sy + k * ch);
  }
  glEnd();
  char caption[96];
  if (c.ready) {
    std::snprintf(caption, sizeof caption, "%d samples, %d%%", c.samples, int(c.covered * 100 + 0.5f));
    glColor3f(0.4f, 0.95f, 0.5f);
  } else {
    std::snprintf(caption, sizeof caption, "not ready: %d/%d frames, %d%%", c.frames, s.min_frames,
                  int(c.covered * 100 + 0.5f));
    glColor3f(1.0f, 0.35f, 0.25f);
    glLineWidth(2.5f);
    Rectangle(GL_LINE_LOOP, sx - 1, sy - 1, sx + sw + 1, sy + sh + 1);
    glLineWidth(1);
  }
  gldraw::Text(sx + 6, sy + 6, 0, caption);
}

// Where a label `width` x `height` pixels starts (its lower left corner)
// beside a round mark of radius `radius` at (x, y) in a view `viewWidth` x
// `viewHeight`, all in window pixels with y up: right of the mark and below
// its middle, on the left where the right has no room, always inside the view.
struct LabelSpot {
  float x, y;
};
LabelSpot PlaceLabel(float x, float y, float radius, float width, float height, float viewWidth,
                     float viewHeight) {
  const float gap = 4;
  LabelSpot at{x + radius + gap, y - radius * 0.7f - height};
  if (at.x + width > viewWidth - gap) at.x = x - radius - gap - width;
  at.x = std::clamp(at.x, gap, std::max(gap, viewWidth - gap - width));
  at.y = std::clamp(at.y, gap, std::max(gap, viewHeight - gap - height));
  return at;
}

// "may have moved" beside the ring of a moved camera at scene point `p`,
// placed in window pixels so that a camera near the view's edge keeps its
// label readable inside the view.
void MovedLabel(const Vec3& p, float marker, const GLdouble* modelView) {
  static const std::string kText = "may have moved";
  GLdouble projection[16];
  GLint viewport[4];
  glGetDoublev(GL_PROJECTION_MATRIX, projection);
  glGetIntegerv(GL_VIEWPORT, viewport);
  // The view's x axis in the scene reaches the ring's edge on the screen.
  const Vec3 edge(p.x() + float(modelView[0]) * marker, p.y() + float(modelView[4]) * marker,
                  p.z() + float(modelView[8]) * marker);
  GLdouble cx, cy, cz, ex, ey, ez;
  if (!gluProject(p.x(), p.y(), p.z(), modelView, projection, viewport, &cx, &cy, &cz) ||
      !gluProject(edge.x(), edge.y(), edge.z(), modelView, projection, viewport, &ex, &ey, &ez))
    return;
  const float radius = float(std::hypot(ex - cx, ey - cy));
  const LabelSpot at =
      PlaceLabel(float(cx - viewport[0]), float(cy - viewport[1]), radius,
                 float(gldraw::TextWidth(kText)), 10, float(viewport[2]), float(viewport[3]));
  // The raster position starts at the camera (keeping its depth) and moves
  // by the offset in pixels to the label's corner.
  glRasterPos3f(p.x(), p.y(), p.z());
  glBitmap(0, 0, 0, 0, float(at.x - (cx - viewport[0])), float(at.y - (cy - viewport[1])), nullptr);
  gldraw::TextHere(kText);
}

}  // namespace

void DrawCell2d(const CalibrationOverlay& o, int32_t camera, float sx, float sy, float sw, float sh) {
  if (o.showCoverage) {
    if (const ZORCoverage* c = o.CoverageOf(camera)) DrawCoverage(*c, o.summary, sx, sy, sw, sh);
  }
  if (const ZORCameraWatch* w = o.MovedOf(camera)) {
    glColor3f(1.0f, 0.45f, 0.0f);
    glLineWidth(4);
    Rectangle(GL_LINE_LOOP, sx - 3, sy - 3, sx + sw + 3, sy + sh + 3);
    glLineWidth(1);
    char text[96];
    std::snprintf(text, sizeof text, "may have moved (%.2f px)", w->residual_px);
    gldraw::Text(sx + 6, sy + sh - 16, 0, text);
  }
}

void DrawScene3d(const CalibrationOverlay& o, const std::vector<ZORCamera>& cameras, float scale,
                 float marker) {
  const auto at = [&](int32_t id, Vec3* p) {
    for (const ZORCamera& c : cameras) {
      if (c.id != id || !(c.cond >= 0)) continue;
      *p = {c.pose[0] * scale, c.pose[1] * scale, c.pose[2] * scale};
      return true;
    }
    return false;
  };
  glPushAttrib(GL_ENABLE_BIT | GL_CURRENT_BIT | GL_LINE_BIT);
  glDisable(GL_LIGHTING);
  glEnable(GL_BLEND);
  const size_t n = o.coverage.size();
  if (o.showCoverage && o.shared.size() == n * n) {
    // Every pair that saw the wand together; the weak ones thicker and red.
    for (size_t a = 0; a < n; ++a) {
      for (size_t b = a + 1; b < n; ++b) {
        const int shared = o.shared[a * n + b];
        Vec3 pa, pb;
        if (shared <= 0 || !at(o.coverage[a].camera, &pa) || !at(o.coverage[b].camera, &pb)) continue;
        const bool weak = shared < o.summary.min_shared_frames;
        if (weak) {
          glColor4f(1.0f, 0.25f, 0.2f, 0.9f);
        } else {
          glColor4f(0.3f, 0.9f, 0.4f, 0.35f);
        }
        glLineWidth(weak ? 2.5f : 1.0f);
        gldraw::Line(pa, pb);
      }
    }
    glLineWidth(1);
  }
  GLdouble modelView[16];
  glGetDoublev(GL_MODELVIEW_MATRIX, modelView);
  for (const ZORCameraWatch& w : o.moved) {
    Vec3 p;
    if (!w.moved || !at(w.camera, &p)) continue;
    glColor3f(1.0f, 0.45f, 0.0f);
    glLineWidth(3);
    gldraw::FacingRing(p, marker, modelView);
    glLineWidth(1);
    MovedLabel(p, marker, modelView);
  }
  glPopAttrib();
}

}  // namespace overlay
