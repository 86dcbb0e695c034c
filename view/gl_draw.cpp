#include "view/gl_draw.h"

#include <GL/freeglut.h>
#include <GL/glu.h>

#include <cmath>

namespace gldraw {
namespace {

void* TextFont() { return GLUT_BITMAP_HELVETICA_10; }

void Cube(GLenum mode) {
  static const float v[8][3] = {{-.5f, -.5f, -.5f}, {.5f, -.5f, -.5f}, {.5f, .5f, -.5f},
                                {-.5f, .5f, -.5f},  {-.5f, -.5f, .5f}, {.5f, -.5f, .5f},
                                {.5f, .5f, .5f},    {-.5f, .5f, .5f}};
  static const int faces[6][4] = {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4},
                                  {2, 3, 7, 6}, {1, 2, 6, 5}, {0, 4, 7, 3}};
  static const float normals[6][3] = {{0, 0, -1}, {0, 0, 1}, {0, -1, 0},
                                      {0, 1, 0},  {1, 0, 0}, {-1, 0, 0}};
  for (int f = 0; f < 6; ++f) {
    glBegin(mode);
    glNormal3fv(normals[f]);
    for (int k : faces[f]) glVertex3fv(v[k]);
    glEnd();
  }
}

void Sphere(GLenum style) {
  GLUquadric* q = gluNewQuadric();
  gluQuadricDrawStyle(q, style);
  gluSphere(q, 1.0, 8, 8);
  gluDeleteQuadric(q);
}

void Glyph() {
  const float s = 0.3f;
  glBegin(GL_LINES);
  glVertex3f(-s, 0, 0), glVertex3f(s, 0, 0);
  glVertex3f(0, -s, 0), glVertex3f(0, s, 0);
  glVertex3f(0, 0, -s), glVertex3f(0, 0, s);
  glEnd();
}

}  // namespace

void DisplayLists::Ensure() {
  for (int slot = 0; slot < kSlotCount; ++slot) {
    if (slot == kGridList || ids_[slot] >= 1) continue;  // the grid is built by the scene
    ids_[slot] = glGenLists(1);
    glNewList(ids_[slot], GL_COMPILE);
    switch (slot) {
      case kGlyph: Glyph(); break;
      case kSolidCube: Cube(GL_QUADS); break;
      case kWireCube: Cube(GL_LINE_LOOP); break;
      case kSolidSphere: Sphere(GLU_FILL); break;
      case kWireSphere: Sphere(GLU_LINE); break;
      default: break;
    }
    glEndList();
  }
}

void DisplayLists::Forget() {
  for (GLuint& id : ids_) id = 0;
}

void DisplayLists::Delete() {
  for (GLuint& id : ids_) {
    if (id >= 1) glDeleteLists(id, 1);
    id = 0;
  }
}

Colour Palette(int index) {
  static const float colours[7][3] = {{.467f, .467f, .467f}, {1, 1, 1}, {0, 1, 0},
                                      {.667f, .667f, 1},     {.667f, .667f, .667f},
                                      {1, 0, 0},             {1, .667f, .667f}};
  const float* c = colours[index >= 0 && index < 7 ? index : 1];
  return Colour().set(c[0], c[1], c[2], 1);
}

Colour TrackerColour(int trackerId) {
  static const float colours[8][3] = {{1, 1, 1},     {0.4f, 1, 0.4f}, {1, 0.6f, 0.2f},
                                      {0.5f, 0.7f, 1}, {1, 0.5f, 0.8f}, {1, 1, 0.4f},
                                      {0.4f, 1, 1},  {0.8f, 0.6f, 1}};
  const float* c = colours[(trackerId % 8 + 8) % 8];
  return Colour().set(c[0], c[1], c[2], 1);
}

void SetUpLights() {
  struct Light {
    GLenum id;
    float position[4], ambient[4], diffuse[4], specular[4];
  };
  const Light lights[] = {
      {GL_LIGHT0, {0, 1, 0, 0}, {.2f, .2f, .2f, 1}, {.7f, .7f, .7f, 1}, {0, 0, 0, 0}},
      {GL_LIGHT1, {-1, 0, -1, 0}, {0, 0, 0, 0}, {.5f, .5f, .5f, 1}, {0, 0, 0, 0}},
  };
  const float zero[4] = {0, 0, 0, 1};
  for (const Light& l : lights) {
    glLightfv(l.id, GL_AMBIENT, zero);
    glLightfv(l.id, GL_DIFFUSE, zero);
    glLightfv(l.id, GL_SPECULAR, zero);
    glLightfv(l.id, GL_POSITION, l.position);
    const bool ambient = l.ambient[3] > 0, diffuse = l.diffuse[3] > 0, specular = l.specular[3] > 0;
    if (ambient) {
      glLightfv(l.id, GL_AMBIENT, l.ambient);
      glLightModelfv(GL_LIGHT_MODEL_AMBIENT, l.ambient);
    }
    if (diffuse) {
      glLightfv(l.id, GL_DIFFUSE, l.diffuse);
      glEnable(l.id);
    }
    if (ambient && diffuse) {
      glColorMaterial(GL_FRONT, GL_AMBIENT_AND_DIFFUSE);
      glEnable(GL_COLOR_MATERIAL);
    }
    if (specular) {
      glLightfv(l.id, GL_SPECULAR, l.specular);
      glLightModeli(GL_LIGHT_MODEL_LOCAL_VIEWER, GL_TRUE);
    }
  }
  glShadeModel(GL_SMOOTH);
  glEnable(GL_LIGHTING);
  glHint(GL_PERSPECTIVE_CORRECTION_HINT, GL_NICEST);
}

void BodySpot(const Vec3& position, const Vec3& direction) {
  glColorMaterial(GL_FRONT, GL_AMBIENT_AND_DIFFUSE);
  glEnable(GL_COLOR_MATERIAL);
  const float white[4] = {1, 1, 1, 1};
  const float at[4] = {position[0], position[1], position[2], 1};
  const float aim[3] = {direction[0], direction[1], direction[2]};
  glLightfv(GL_LIGHT0, GL_SPECULAR, white);
  glLightfv(GL_LIGHT0, GL_POSITION, at);
  glLightfv(GL_LIGHT0, GL_SPOT_DIRECTION, aim);
}

void Colour4(const Colour& c) { glColor4fv(c.data()); }

bool TextAvailable() { return glutGet(GLUT_INIT_STATE) != 0; }

void Text(float x, float y, float z, const std::string& text) {
  if (text.empty() || !TextAvailable()) return;
  glRasterPos3f(x, y, z);
  TextHere(text);
}

void TextHere(const std::string& text) {
  if (text.empty() || !TextAvailable()) return;
  glutBitmapString(TextFont(), reinterpret_cast<const unsigned char*>(text.c_str()));
}

int TextWidth(const std::string& text) {
  if (!TextAvailable()) return static_cast<int>(text.size()) * 6;
  return glutBitmapLength(TextFont(), reinterpret_cast<const unsigned char*>(text.c_str()));
}

void Disc(float radius, int segments) {
  glBegin(GL_TRIANGLE_FAN);
  glNormal3f(0, 1, 0);
  glVertex3f(0, 0, 0);
  for (int i = 0; i <= segments; ++i) {
    const double a = 2 * M_PI * i / segments;
    glVertex3f(static_cast<float>(radius * std::cos(a)), 0, static_cast<float>(-radius * std::sin(a)));
  }
  glEnd();
}

void GridLines(float extent, int divisions) {
  if (divisions < 1) return;
  const float half = extent / 2;
  glBegin(GL_LINES);
  for (int i = 0; i <= divisions; ++i) {
    const float at = -half + extent * i / divisions;
    glVertex3f(at, 0, -half), glVertex3f(at, 0, half);
    glVertex3f(-half, 0, at), glVertex3f(half, 0, at);
  }
  glEnd();
}

void FacingRing(const Vec3& c, float radius, const double* mv, int segments) {
  // Rows of the model-view's rotation are the viewer's right and up axes.
  const Vec3 right{float(mv[0]), float(mv[4]), float(mv[8])};
  const Vec3 up{float(mv[1]), float(mv[5]), float(mv[9])};
  glBegin(GL_LINE_LOOP);
  for (int i = 0; i < segments; ++i) {
    const double a = 2 * M_PI * i / segments;
    const float u = static_cast<float>(radius * std::cos(a)), v = static_cast<float>(radius * std::sin(a));
    glVertex3f(c[0] + right[0] * u + up[0] * v, c[1] + right[1] * u + up[1] * v,
               c[2] + right[2] * u + up[2] * v);
  }
  glEnd();
}

void Circle(int axis, float radius, int segments) {
  glBegin(GL_LINE_LOOP);
  for (int i = 0; i < segments; ++i) {
    const double a = 2 * M_PI * i / segments;
    const float u = static_cast<float>(radius * std::cos(a)), v = static_cast<float>(radius * std::sin(a));
    if (axis == 0) glVertex3f(0, u, v);
    else if (axis == 1) glVertex3f(u, 0, v);
    else glVertex3f(u, v, 0);
  }
  glEnd();
}

void Line(const Vec3& a, const Vec3& b) {
  glBegin(GL_LINES);
  glVertex3fv(a.data());
  glVertex3fv(b.data());
  glEnd();
}

}  // namespace gldraw
