#include "view/aiming_view.h"

#include <GL/gl.h>

#include <algorithm>
#include <map>
#include <string>

#include "link/zortk.h"
#include "view/gl_draw.h"
#include "view/scene_view.h"

namespace aiming {
namespace {

// The views aiming now, each with whether it showed the 2D view before.
std::map<const SceneView*, bool>& Aiming() {
  static std::map<const SceneView*, bool> views;
  return views;
}

void Frame(float x0, float y0, float x1, float y1) {
  glBegin(GL_LINE_LOOP);
  glVertex2f(x0, y0), glVertex2f(x1, y0), glVertex2f(x1, y1), glVertex2f(x0, y1);
  glEnd();
}

}  // namespace

void Set(SceneView& view, bool on) {
  auto& views = Aiming();
  const auto it = views.find(&view);
  if (on == (it != views.end())) return;
  if (on) {
    views[&view] = view.view2d();
    view.SetView2d(true);
  } else {
    view.SetView2d(it->second);
    views.erase(it);
  }
}

bool On(const SceneView& view) { return Aiming().count(&view) != 0; }

// A camera that sees LEDs gets a green frame and their count; one that sees
// none a thick red frame and "no LEDs". The cross marks the picture's middle:
// a camera aimed at the wand held in the middle of the capture space sees it
// there.
void DrawCell(const ZOR& session, int32_t camera, float x, float y, float w, float h, float sx,
              float sy, float sw, float sh) {
  const auto seen = std::count_if(session.images.begin(), session.images.end(),
                                  [camera](const ZORImage& im) { return im.camera == camera; });
  const auto colour = [seen] {
    if (seen) {
      glColor3f(0.3f, 0.85f, 0.3f);
    } else {
      glColor3f(0.95f, 0.15f, 0.1f);
    }
  };
  colour();
  glLineWidth(seen ? 1.5f : 3.0f);
  Frame(x + 3, y + 3, x + w - 3, y + h - 3);
  glLineWidth(1);

  const float cx = sx + sw / 2, cy = sy + sh / 2, arm = std::min(sw, sh) / 12;
  glColor4f(0.6f, 0.6f, 0.7f, 0.6f);
  glBegin(GL_LINES);
  glVertex2f(cx - arm, cy), glVertex2f(cx + arm, cy), glVertex2f(cx, cy - arm), glVertex2f(cx, cy + arm);
  glEnd();

  const std::string caption = seen ? std::to_string(seen) + (seen == 1 ? " LED" : " LEDs") : "no LEDs";
  const float width = float(gldraw::TextWidth(caption));
  colour();
  if (seen) {
    gldraw::Text(sx + sw - width - 6, sy + 6, 0, caption);
  } else {
    gldraw::Text(cx - width / 2, cy - arm - 18, 0, caption);
  }
}

}  // namespace aiming
