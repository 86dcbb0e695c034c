// Drawing helpers of the scene: the shared display lists, the palette, the
// lights and small primitives (text, discs, rings, cubes). All need a current
// GL context; text needs GLUT to have been initialised and is skipped without.
#pragma once

#include <GL/gl.h>

#include <string>

#include "zorsock/geometry.h"

namespace gldraw {

enum ListSlot { kGlyph = 0, kGridList = 2, kSolidCube = 3, kWireCube = 4, kSolidSphere = 5,
                kWireSphere = 6, kSlotCount = 7 };

// Display lists made on first use and kept for the life of the context.
class DisplayLists {
 public:
  // (Re)builds every slot whose id is below 1.
  void Ensure();
  // Forgets the ids (the context that held them is gone) or deletes them.
  void Forget();
  void Delete();
  void Call(ListSlot slot) const { glCallList(ids_[slot]); }
  GLuint id(ListSlot slot) const { return ids_[slot]; }
  GLuint& grid() { return ids_[kGridList]; }

 private:
  GLuint ids_[kSlotCount] = {};
};

// The seven named colours, by index: "#777", "#fff", "#0f0", "#aaf",
// "#aaa", "#f00", "#faa".
Colour Palette(int index);
// Colour of a tracker by its id (rigid bodies, markers, trails).
Colour TrackerColour(int trackerId);

void SetUpLights();
// The spot of the body drawing: colour material on front ambient and
// diffuse, light 0 with a white specular term, at point `position` (w = 1)
// aimed along `direction`, both in the current model-view's coordinates.
// Lighting state only: the caller enables lighting around what it lights.
void BodySpot(const Vec3& position, const Vec3& direction);
void Colour4(const Colour& c);

bool TextAvailable();
// Text at a scene point ("Helvetica" at the nearest bitmap size).
void Text(float x, float y, float z, const std::string& text);
// Text at the current raster position.
void TextHere(const std::string& text);
int TextWidth(const std::string& text);

// Flat shapes in the XZ plane (y = 0) around the origin.
void Disc(float radius, int segments);
void GridLines(float extent, int divisions);
// A circle facing the viewer at `centre`, from the model-view matrix.
void FacingRing(const Vec3& centre, float radius, const double* modelView, int segments = 32);
void Circle(int axis, float radius, int segments);  // in the plane normal to axis 0, 1 or 2
void Line(const Vec3& a, const Vec3& b);

}  // namespace gldraw
