// Aiming the cameras: the view shows every camera's picture with what it
// sees now (the 2D camera view); a camera that sees no LED is framed in red
// with "no LEDs" across its picture, so one pointing away from the capture
// space stands out at a glance.
#pragma once

#include <cstdint>

class SceneView;
class ZOR;

namespace aiming {

// On: the 2D camera view with the marks; off: the view shown before. Kept per
// view; a view that goes away while aiming must be turned off first.
void Set(SceneView& view, bool on);
bool On(const SceneView& view);

// Marks one camera's cell of the 2D view: the cell at (x, y), w x h, with the
// sensor's picture at (sx, sy), sw x sh.
void DrawCell(const ZOR& session, int32_t camera, float x, float y, float w, float h, float sx,
              float sy, float sw, float sh);

}  // namespace aiming
