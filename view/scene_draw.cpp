// One frame of the scene: grid, rulers, cameras, rigid bodies, trails,
// measurement labels, highlights, markers, alignment points, the rings and
// the 2D overlays; or, in the 2D view, the cameras' images in a grid.
#include <GL/glu.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "link/zortk.h"
#include "view/aiming_view.h"
#include "view/camera_grid.h"
#include "view/scene_view.h"

using gldraw::Colour4;

namespace {
constexpr float kMarkerPointPixels = 4;  // markers stay visible from afar

Vec3 Scaled(float x, float y, float z, float s) { return {x * s, y * s, z * s}; }

void Grey(float g, float a = 1) { glColor4f(g, g, g, a); }

// The pose as a GL matrix with its position in scene units.
void MultPose(const float* pose, float scale) {
  float p[7], m[16];
  std::copy(pose, pose + 7, p);
  for (int i = 0; i < 3; ++i) p[i] *= scale;
  normalize_p(p);
  convert_pm(p, m);
  glMultMatrixf(m);
}

std::string Format(const char* format, double a, double b = 0, double c = 0, double d = 0) {
  char text[128];
  std::snprintf(text, sizeof text, format, a, b, c, d);
  return text;
}
}  // namespace

std::string SceneView::MarkerLabel(int32_t id, const std::string& name, bool many) {
  char text[160];
  if (many) {
    std::snprintf(text, sizeof text, "%01i:%01i (%s)", id >> 12, id & 0xfff, name.c_str());
  } else {
    std::snprintf(text, sizeof text, "%01i (%s)", id & 0xfff, name.c_str());
  }
  return text;
}

std::string SceneView::CameraCellTitle(const ZORCamera& camera, const ZORDetector* d) {
  char text[128];
  std::snprintf(text, sizeof text, "%02X:%02X  [% 4.1f % 4.1f % 4.1f % 4.1f ]",
                static_cast<unsigned>(camera.id + 1) & 0xff, d ? static_cast<unsigned>(d->state) & 0xff : 0u,
                d ? double(d->detections) : 0.0, d ? double(d->focal) : 0.0,
                d ? double(d->exposure) : 0.0, d ? double(d->temperature) : 0.0);
  return text;
}

std::string SceneView::UncalibratedWarning() const {
  if (!session_) return {};
  std::vector<int> ids;
  for (const ZORCamera& c : session_->cameras) {
    if (!(c.cond >= 0)) ids.push_back(c.id + 1);  // below 0 or not a number
  }
  if (ids.empty()) return {};
  std::string text = "WARNING: " + std::to_string(ids.size()) + " uncalibrated cameras detected: ";
  for (size_t i = 0; i < ids.size(); ++i) {
    if (i == 8) {
      text += "...";
      break;
    }
    if (i > 0) text += ", ";
    text += std::to_string(ids[i]);
  }
  return text;
}

std::vector<std::string> SceneView::MeasurementLabels() const {
  std::vector<std::string> labels;
  if (!session_) return labels;
  // The operator reads millimetres whatever scale the server sends in
  // (the calibration session receives metres).
  const double mm = session_->scale > 0 ? session_->scale : 1.0;
  const ZORMarker* previous = nullptr;
  for (int i : selection_.AllMarkers()) {
    if (i < 0 || size_t(i) >= session_->markers.size()) continue;
    const ZORMarker& m = session_->markers[i];
    if (!(m.cond > 0)) continue;
    double distance = 0;
    if (previous) {
      const double dx = m.x - previous->x, dy = m.y - previous->y, dz = m.z - previous->z;
      distance = std::sqrt(dx * dx + dy * dy + dz * dz) / mm;
    }
    const double x = m.x / mm, y = m.y / mm, z = m.z / mm;
    labels.push_back(distance > 0 ? Format("%.2f %.2f %.2f (d:%.2f)", x, y, z, distance)
                                  : Format("%.2f %.2f %.2f", x, y, z));
    previous = &m;
  }
  return labels;
}

std::vector<char> SceneView::ShownMarkers() const {
  const std::vector<ZORMarker>& markers = session_->markers;
  std::vector<char> shown(markers.size(), 0);
  std::vector<int32_t> rigidTrackers;  // hidden with "Show Rigid Markers" off
  if (!draw.rigidMarkers) {
    for (const auto& t : session_->trackers)
      if (t && t->isRigid()) rigidTrackers.push_back(t->id);
  }
  for (size_t i = 0; i < markers.size(); ++i) {
    const int32_t tracker = markers[i].id >> 12;
    shown[i] = markers[i].cond > 0 && std::find(rigidTrackers.begin(), rigidTrackers.end(),
                                                tracker) == rigidTrackers.end();
  }
  return shown;
}

std::string SceneView::TrackerName(int trackerId) const {
  if (!session_) return {};
  for (const auto& t : session_->trackers) {
    if (t && t->id == trackerId) return t->name;
  }
  return {};
}

bool SceneView::ManyTrackers() const {
  if (!session_ || session_->markers.empty()) return false;
  const int first = session_->markers.front().id >> 12;
  return std::any_of(session_->markers.begin(), session_->markers.end(),
                     [first](const ZORMarker& m) { return (m.id >> 12) != first; });
}

Colour SceneView::MarkerColour(size_t index, const ZORMarker& m) const {
  if (draw.bySlot) {
    return index < slotColours_.size() ? slotColours_[index] : Colour().set(1, 1, 1, 1);
  }
  return gldraw::TrackerColour(m.id >> 12);
}

// ---------------------------------------------------------------- frame

void SceneView::Paint() {
  ++frames_;
  fpsSampler_.Sample(clock_.Now(), frames_);
  lists_.Ensure();
  glViewport(0, 0, width_, height_);
  if (view2d_) {
    Draw2d();
  } else {
    DrawScene();
  }
}

void SceneView::DrawScene() {
  glClearColor(0, 0, 0, 1);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
  glDisable(GL_LIGHTING);
  glShadeModel(GL_FLAT);
  glEnable(GL_DEPTH_TEST);
  glEnable(GL_BLEND);
  glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
  glPushMatrix();

  UpdateFollow();
  camera_.Update();
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  camera_.SetProjection(width_, height_);
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  camera_.SetUp();

  if (!session_) {
    std::printf("!zor\n");
    std::fflush(stdout);
    glPopMatrix();
    return;
  }
  if (draw.grid) DrawGrid();
  for (const Vec3& at : rulers) DrawRuler(at);
  DrawCameras();
  overlay::DrawScene3d(calibration, session_->cameras, PositionScale(), 120 * options_.viewScale);
  DrawTrails();
  if (draw.showDistance) DrawMeasurements();
  if (draw.follow && followValid_) DrawCentreMark(camera_.centre);
  DrawHighlights();
  if (draw.markerIds) DrawMarkerIds();
  DrawMarkers(false);
  DrawRigids(false);
  DrawAlignment();
  DrawManipulator(false);
  DrawOverlay();
  glPopMatrix();
}

void SceneView::DrawGrid() {
  const float s = options_.viewScale;
  if (gridDirty_ || lists_.grid() < 1) {
    if (lists_.grid() < 1) lists_.grid() = glGenLists(1);
    const float extent = options_.gridCount * options_.gridLength * s;
    glNewList(lists_.grid(), GL_COMPILE);
    glLineWidth(1);
    Grey(0.16f);
    gldraw::GridLines(extent, options_.gridCount * 5);
    Grey(0.36f);
    gldraw::GridLines(extent, options_.gridCount);
    glLineWidth(2);
    Grey(1);
    gldraw::Line({-20 * s, 0, 0}, {20 * s, 0, 0});
    gldraw::Line({0, 0, -20 * s}, {0, 0, 20 * s});
    glLineWidth(1);
    glEndList();
    gridDirty_ = false;
  }
  glCallList(lists_.grid());
  // Coarse-line labels along +X, in the grid's unit.
  if (gldraw::TextAvailable()) {
    Grey(0.5f);
    const int half = options_.gridCount / 2;
    for (int i = 1; i <= half; ++i) {
      const float at = i * options_.gridLength * s;
      gldraw::Text(at, 0, 0, Format("%g", i * options_.gridLength / 1000.0) + options_.gridLabel);
    }
  }
}

void SceneView::DrawRuler(const Vec3& at) {
  const float s = options_.viewScale;
  const float t = camera_.PixelSize();
  glPushAttrib(GL_ENABLE_BIT | GL_LINE_BIT | GL_CURRENT_BIT);
  glEnable(GL_LINE_SMOOTH);
  glEnable(GL_BLEND);
  glPushMatrix();
  glTranslatef(at[0] * s, at[1] * s, at[2] * s);
  glColor3f(0, 0.7f, 0);
  auto scale = [](float length, int divisions) {
    glBegin(GL_LINES);
    glVertex3f(-length, 0, 0), glVertex3f(0, 0, 0);
    for (int i = 0; i <= divisions; ++i) {
      const float x = -length * i / divisions, tick = length / (i % 5 == 0 ? 10 : 20);
      glVertex3f(x, 0, 0), glVertex3f(x, tick, 0);
    }
    glEnd();
  };
  // An operator who labels the grid in feet or inches measures in them too:
  // the ruler follows the grid's unit.
  if (options_.gridLabel == "ft" || options_.gridLabel == "in") {
    scale(609.6f * s, 24);
    scale(25.4f * s, 10);
    scale(2.54f * s, 10);
    glColor3f(1, 1, 1);
    gldraw::Text(-304.8f * s, 0, 0, "1ft");
    gldraw::Text(-25.4f * s, 0, 0, "1in");
    if (200 * s > t) gldraw::Text(-2.54f * s, 0, 0, "1E-1in");
    if (10 * s > t) gldraw::Text(-0.254f * s, 0, 0, "1E-2in");
  } else {
    scale(100 * s, 10);
    scale(10 * s, 10);
    scale(1 * s, 10);
    glColor3f(1, 1, 1);
    if (200 * s > t) gldraw::Text(-10 * s, 0, 0, "1cm");
    if (10 * s > t) gldraw::Text(-1 * s, 0, 0, "1mm");
  }
  glPopMatrix();
  glPopAttrib();
}

// ---------------------------------------------------------------- cameras

void SceneView::DrawCone(const ZORCamera& c) {
  const float length = options_.coneLength * options_.viewScale;
  const float r = length / std::sqrt(3.0f);
  glPushMatrix();
  MultPose(c.pose, PositionScale());
  glRotatef(45, 0, 0, 1);
  const float corners[4][3] = {{r, r, -length}, {-r, r, -length}, {-r, -r, -length}, {r, -r, -length}};
  glColor3f(0.5f, 0.5f, 0);
  glBegin(GL_LINES);
  for (const auto& k : corners) glVertex3f(0, 0, 0), glVertex3fv(k);
  glEnd();
  glBegin(GL_LINE_LOOP);
  for (const auto& k : corners) glVertex3fv(k);
  glEnd();
  glColor4f(1, 1, 0, 0.05f);
  glBegin(GL_TRIANGLE_FAN);
  glVertex3f(0, 0, 0);
  for (const auto& k : corners) glVertex3fv(k);
  glVertex3fv(corners[0]);
  glEnd();
  glPopMatrix();
}

void SceneView::DrawCamera(const ZORCamera& c, int index) {
  const float ps = PositionScale();  // session units to scene units
  const float s = options_.viewScale;
  glColor3f(1, 1, 1);
  if (draw.cameraLabels) {
    gldraw::Text(c.pose[0] * ps, c.pose[1] * ps + 70 * s, c.pose[2] * ps, std::to_string(index + 1));
  }
  if (draw.stands) {
    Grey(0.7f);
    gldraw::Line({c.pose[0] * ps, 0, c.pose[2] * ps}, {c.pose[0] * ps, c.pose[1] * ps, c.pose[2] * ps});
    glPushMatrix();
    glTranslatef(c.pose[0] * ps, 0, c.pose[2] * ps);
    gldraw::Disc(75 * s, 16);
    glPopMatrix();
  }
  if (!draw.cameras) return;
  glPushMatrix();
  MultPose(c.pose, ps);
  if (draw.cameraAxes) {
    glColor3f(1, 0, 0);
    gldraw::Line({-50 * s, 0, 0}, {50 * s, 0, 0});
    glColor3f(0, 1, 0);
    gldraw::Line({0, 0, 0}, {0, 64 * s, 0});
    glColor3f(1, 1, 1);
    gldraw::Line({0, 0, 0}, {0, 0, -150 * s});
  }
  // The body of the camera, so that it can be seen from afar.
  Grey(0.6f);
  glPushMatrix();
  glScalef(60 * s, 60 * s, 90 * s);
  lists_.Call(gldraw::kWireCube);
  glPopMatrix();
  glPopMatrix();
}

void SceneView::DrawCameras() {
  if (!(draw.cameras || draw.cones || draw.stands || draw.cameraLabels)) return;
  const std::vector<ZORCamera>& cameras = session_->cameras;
  selection_.ResizeCameras(cameras.size());
  // Cone lists follow the cameras: rebuilt when their number or poses change.
  bool changed = camerasChanged_ || cameras.size() != coneLists_.size() ||
                 cameras.size() != coneCameras_.size();
  for (size_t i = 0; !changed && i < cameras.size(); ++i) {
    changed = !std::equal(cameras[i].pose, cameras[i].pose + 7, coneCameras_[i].pose) ||
              (cameras[i].cond >= 0) != (coneCameras_[i].cond >= 0);
  }
  if (changed) {
    for (GLuint id : coneLists_) glDeleteLists(id, 1);
    coneLists_.assign(cameras.size(), 0);
    for (size_t i = 0; i < cameras.size(); ++i) {
      coneLists_[i] = glGenLists(1);
      glNewList(coneLists_[i], GL_COMPILE);
      if (cameras[i].cond >= 0) DrawCone(cameras[i]);
      glEndList();
    }
    coneCameras_ = cameras;
    camerasChanged_ = false;
  }
  const bool anySelected = selection_.AnyCamera();
  glPushAttrib(GL_ENABLE_BIT | GL_CURRENT_BIT | GL_LINE_BIT);
  glDisable(GL_LIGHTING);
  glDisable(GL_DEPTH_TEST);
  glEnable(GL_BLEND);
  for (size_t i = 0; i < cameras.size(); ++i) {
    if (!(cameras[i].cond >= 0)) continue;
    const bool selected = selection_.CameraSelected(int(i));
    if ((draw.cones && (selected || !anySelected)) || (!draw.cones && selected)) {
      glCallList(coneLists_[i]);
    }
  }
  glPopAttrib();
  for (size_t i = 0; i < cameras.size(); ++i) {
    const ZORCamera& c = cameras[i];
    if (!(c.cond >= 0)) continue;
    DrawCamera(c, int(i));
    if (selection_.CameraSelected(int(i))) {
      glLineWidth(2);
      glColor3f(1, 1, 0);
      // In scene units, not scaled with the view: a selected camera stays
      // easy to spot when zoomed out over the whole room.
      gldraw::FacingRing(Scaled(c.pose[0], c.pose[1], c.pose[2], PositionScale()), 10 * options_.markerScale,
                         camera_.modelView);
      glLineWidth(1);
    }
  }
}

// ---------------------------------------------------------------- bodies

void SceneView::DrawRigids(bool forPick) {
  const float ps = PositionScale();  // session units to scene units
  const float m = options_.markerScale, s = options_.viewScale;
  const std::vector<ZORRigid>& rigids = session_->rigids;
  if (!forPick) {
    // The bodies' spheres are lit by the body spot, placed at the eye and
    // aimed along the view (a head lamp: the side the operator looks at is
    // the bright one). The frame itself is drawn unlit (flat colours), so
    // lighting is switched on for the spheres only; a light's specular term
    // shows only on a material with one, so the bodies get a moderate one.
    glPushAttrib(GL_ENABLE_BIT | GL_LIGHTING_BIT | GL_CURRENT_BIT | GL_LINE_BIT);
    glPushMatrix();
    glLoadIdentity();
    gldraw::BodySpot({0, 0, 0}, {0, 0, -1});
    glPopMatrix();
    const float shine[4] = {0.6f, 0.6f, 0.6f, 1};
    glMaterialfv(GL_FRONT, GL_SPECULAR, shine);
    glMaterialf(GL_FRONT, GL_SHININESS, 24);
    glEnable(GL_NORMALIZE);  // the unit sphere is scaled to the body's size
  }
  for (size_t i = 0; i < rigids.size(); ++i) {
    const ZORRigid& b = rigids[i];
    if (!(b.cond >= 0)) continue;
    if (forPick) {
      glLoadName(kNameRigidBase + static_cast<uint32_t>(i));
      glBegin(GL_POINTS);
      glVertex3f(b.pose[0] * ps, b.pose[1] * ps, b.pose[2] * ps);
      glEnd();
      continue;
    }
    if (!draw.rigidPositions) continue;
    Colour k = gldraw::TrackerColour(b.id);
    k.v[3] = 0.8f;
    const bool selected = selection_.RigidSelected(int(i));
    if (draw.stands || draw.shadows) {
      Grey(0.5f);
      glPushMatrix();
      glTranslatef(b.pose[0] * ps, 0, b.pose[2] * ps);
      gldraw::Disc(5 * m * s, 8);
      glPopMatrix();
    }
    glPushMatrix();
    MultPose(b.pose, ps);
    glMultMatrixf(orientation.data());
    const float axis = 200 * s;
    glColor4f(1, 0, 0, k.v[3]);
    gldraw::Line({0, 0, 0}, {axis, 0, 0});
    glColor4f(0, 1, 0, k.v[3]);
    gldraw::Line({0, 0, 0}, {0, axis, 0});
    glColor4f(0, 0, 1, k.v[3]);
    gldraw::Line({0, 0, 0}, {0, 0, axis});
    glRotatef(90, 1, 0, 0);
    Colour4(k);
    glPushMatrix();
    const float r = 5 * m * s;
    glScalef(r, r, r);
    glEnable(GL_LIGHTING);
    lists_.Call(draw.fill ? gldraw::kSolidSphere : gldraw::kWireSphere);
    glDisable(GL_LIGHTING);
    glPopMatrix();
    glPopMatrix();
    if (selected) {
      glLineWidth(2);
      glColor3f(1, 1, 0);
      gldraw::FacingRing(Scaled(b.pose[0], b.pose[1], b.pose[2], ps), 7 * 5 * m * s, camera_.modelView);
      glLineWidth(1);
    }
  }
  if (!forPick) glPopAttrib();
}

void SceneView::DrawMarker(const ZORMarker& mk, const Colour& colour, bool selected) {
  const float s = options_.viewScale, r = 5 * options_.markerScale * s;
  const Vec3 p = Scaled(mk.x, mk.y, mk.z, PositionScale());
  if (draw.shadows) {
    Grey(0.5f);
    glPushMatrix();
    glTranslatef(p[0], 0, p[2]);
    gldraw::Disc(r, 8);
    glPopMatrix();
  }
  Colour4(colour);
  glPushMatrix();
  glTranslatef(p[0], p[1], p[2]);
  glRotatef(90, 1, 0, 0);
  const bool sphere = mk.cond <= store_.conditionCutoff();
  if (sphere) {
    glScalef(r, r, r);
    lists_.Call(draw.fill ? gldraw::kSolidSphere : gldraw::kWireSphere);
  } else {
    glScalef(r, r, r);
    lists_.Call(draw.fill ? gldraw::kSolidCube : gldraw::kWireCube);
  }
  glPopMatrix();
  if (selected) {
    glLineWidth(2);
    glColor3f(1, 1, 0);
    gldraw::FacingRing(p, 7 * r, camera_.modelView);
    glLineWidth(1);
  }
}

void SceneView::DrawMarkers(bool forPick) {
  const std::vector<ZORMarker>& markers = session_->markers;
  const float s = PositionScale();
  if (forPick) {
    for (size_t i = 0; i < markers.size(); ++i) {
      if (!(markers[i].cond > 0)) continue;
      glLoadName(kNameMarkerBase + static_cast<uint32_t>(i));
      glBegin(GL_POINTS);
      glVertex3f(markers[i].x * s, markers[i].y * s, markers[i].z * s);
      glEnd();
    }
    return;
  }
  std::vector<char> selected(markers.size(), 0);
  for (int i : selection_.AllMarkers()) {
    if (i >= 0 && size_t(i) < markers.size()) selected[i] = 1;
  }
  const std::vector<char> shown = ShownMarkers();
  for (size_t i = 0; i < markers.size(); ++i) {
    if (!shown[i]) continue;
    DrawMarker(markers[i], MarkerColour(i, markers[i]), selected[i]);
  }
  // A few pixels each, so that markers far away are still seen.
  glPointSize(kMarkerPointPixels);
  glBegin(GL_POINTS);
  for (size_t i = 0; i < markers.size(); ++i) {
    if (!shown[i]) continue;
    Colour4(MarkerColour(i, markers[i]));
    glVertex3f(markers[i].x * s, markers[i].y * s, markers[i].z * s);
  }
  glEnd();
  glPointSize(1);
}

// The trails are the view's heaviest drawing (up to thousands of positions
// per marker): they live in a buffer kept between frames (view/trail_buffer).
void SceneView::DrawTrails() { trails_.Draw(store_, PositionScale(), camera_); }

// ---------------------------------------------------------------- labels

void SceneView::DrawMeasurements() {
  const float ps = PositionScale();  // session units to scene units
  const float s = options_.viewScale;
  const std::vector<std::string> labels = MeasurementLabels();
  size_t n = 0;
  for (int i : selection_.AllMarkers()) {
    if (i < 0 || size_t(i) >= session_->markers.size() || !(session_->markers[i].cond > 0)) continue;
    if (n >= labels.size()) break;
    const ZORMarker& m = session_->markers[i];
    glPushMatrix();
    glTranslatef(m.x * ps, m.y * ps, m.z * ps);
    glScalef(s, s, s);
    glColor3f(1, 1, 1);
    // A cross of unit lines (a millimetre at the view's scale) marks the point.
    gldraw::Line({-0.5f, 0, 0}, {0.5f, 0, 0});
    gldraw::Line({0, -0.5f, 0}, {0, 0.5f, 0});
    gldraw::Line({0, 0, -0.5f}, {0, 0, 0.5f});
    gldraw::Text(0, 30, 0, labels[n++]);
    glPopMatrix();
  }
}

void SceneView::DrawCentreMark(const Vec3& p) {
  const float s = options_.viewScale;
  if (p[1] >= 0) {
    glColor3f(1, 1, 0);
  } else {
    glColor3f(0.5f, 0.5f, 0);
  }
  if (p[1] == 0) {
    glBegin(GL_POINTS);
    glVertex3f(p[0], 0, p[2]);
    glEnd();
  } else {
    gldraw::Line({p[0], 0, p[2]}, p);
  }
  glPushMatrix();
  glTranslatef(p[0], 0, p[2]);
  gldraw::Disc(25 * s, 16);
  glPopMatrix();
}

void SceneView::DrawHighlights() {
  // Selected rigid bodies get a green halo besides their ring.
  const float s = options_.viewScale, r = 5 * options_.markerScale * s;
  glColor4f(0.5f, 0.9f, 0.5f, 1);
  for (int i : selection_.rigids) {
    if (i < 0 || size_t(i) >= session_->rigids.size()) continue;
    const float* p = session_->rigids[i].pose;
    gldraw::FacingRing(Scaled(p[0], p[1], p[2], PositionScale()), 9 * r, camera_.modelView);
  }
}

void SceneView::DrawMarkerIds() {
  const float ps = PositionScale();  // session units to scene units
  const float s = options_.viewScale, offset = 8 * options_.markerScale * s;
  const bool many = ManyTrackers();
  glColor3f(1, 1, 1);
  for (const ZORMarker& m : session_->markers) {
    if (!(m.cond > 0)) continue;
    gldraw::Text(m.x * ps + offset, m.y * ps + offset, m.z * ps,
                 MarkerLabel(m.id, TrackerName(m.id >> 12), many));
  }
}

void SceneView::DrawAlignment() {
  if (alignmentPoints.empty()) return;
  const float s = options_.viewScale;
  static const char* kNames[] = {"Origin", "X", "Z"};
  std::vector<Vec3> p;
  for (const Vec3& a : alignmentPoints) p.push_back(Vec3(a).scale(s));
  // A point just taken shows yellow for a moment.
  const bool fresh = static_cast<int32_t>(alignmentHighlightUntil - clock_.Now()) > 0;
  if (fresh)
    glColor3f(1, 1, 0);
  else
    glColor3f(1, 1, 1);
  for (size_t i = 0; i < p.size() && i < 3; ++i) {
    glPushMatrix();
    glTranslatef(p[i][0], p[i][1], p[i][2]);
    const float r = 8 * options_.markerScale * s;
    glScalef(r, r, r);
    lists_.Call(gldraw::kWireSphere);
    glPopMatrix();
    gldraw::Text(p[i][0], p[i][1] + 30 * s, p[i][2], kNames[i]);
  }
  if (p.size() >= 2) {
    glColor3f(1, 0, 0);
    gldraw::Line(p[0], p[1]);
  }
  if (p.size() >= 3) {
    glColor3f(0, 0, 1);
    gldraw::Line(p[0], p[2]);
    // The plane's normal (up), square to both axes.
    const Vec3 x = difference(p[1], p[0]), z = difference(p[2], p[0]);
    Vec3 normal = cross(z, x);
    normal.setLength(x.length());
    glColor3f(0, 1, 0);
    gldraw::Line(p[0], Vec3(p[0][0] + normal[0], p[0][1] + normal[1], p[0][2] + normal[2]));
  }
}

void SceneView::DrawManipulator(bool forPick) {
  if (!draw.manipulator || !manipulator_.attached()) return;
  const Vec3 centre = manipulator_.Centre();
  const float radius = Manipulator::RingRadius(camera_.eye, centre);
  const Pose pose = manipulator_.CurrentPose();
  float m[16];
  convert_pm(pose.data(), m);
  glPushMatrix();
  glTranslatef(centre[0], centre[1], centre[2]);
  for (int axis = 0; axis < 3; ++axis) {
    const float* normal = m + axis * 4;
    if (forPick) glLoadName(kNameRingX + axis);
    if (!forPick) {
      const bool held = manipulator_.state == axis + 1;
      glLineWidth(held ? 3 : 2);
      glColor3f(axis == 0 ? 1.f : 0.f, axis == 1 ? 1.f : 0.f, axis == 2 ? 1.f : 0.f);
    }
    // A ring in the plane square to the body's axis.
    Vec3 u = std::fabs(normal[0]) < 0.9f ? cross(Vec3(normal[0], normal[1], normal[2]), Vec3(1, 0, 0))
                                         : cross(Vec3(normal[0], normal[1], normal[2]), Vec3(0, 1, 0));
    u.setLength(radius);
    Vec3 v = cross(Vec3(normal[0], normal[1], normal[2]), u);
    glBegin(GL_LINE_LOOP);
    for (int i = 0; i < 48; ++i) {
      const double a = 2 * M_PI * i / 48;
      const float c = float(std::cos(a)), sn = float(std::sin(a));
      glVertex3f(u[0] * c + v[0] * sn, u[1] * c + v[1] * sn, u[2] * c + v[2] * sn);
    }
    glEnd();
  }
  glPopMatrix();
  if (forPick) glLoadName(kNameRingFree);
  if (!forPick) glColor3f(0.8f, 0.8f, 0.8f);
  gldraw::FacingRing(centre, radius * 1.15f, camera_.modelView, 48);
  glLineWidth(1);
}

void SceneView::DrawPickables() {
  if (!session_) return;
  DrawMarkers(true);
  DrawRigids(true);
  const float ps = PositionScale();
  for (size_t i = 0; i < session_->cameras.size(); ++i) {
    const ZORCamera& c = session_->cameras[i];
    if (!(c.cond >= 0)) continue;
    glLoadName(kNameCameraBase + static_cast<uint32_t>(i));
    glBegin(GL_POINTS);
    glVertex3f(c.pose[0] * ps, c.pose[1] * ps, c.pose[2] * ps);
    glEnd();
  }
  DrawManipulator(true);
}

// ---------------------------------------------------------------- overlays

void SceneView::DrawBox() {
  // Window coordinates centred on the middle of the widget.
  const float x0 = dragStartX_ - width_ / 2, y0 = dragStartY_ - height_ / 2;
  const float x1 = boxX_ - width_ / 2, y1 = boxY_ - height_ / 2;
  glColor4f(1, 1, 1, 0.5f);
  glRectf(x0, y0, x1, y1);
  glColor4f(1, 1, 1, 1);
  glBegin(GL_LINE_LOOP);
  glVertex2f(x0, y0), glVertex2f(x1, y0), glVertex2f(x1, y1), glVertex2f(x0, y1);
  glEnd();
}

void SceneView::DrawOverlay() {
  glPushAttrib(GL_ENABLE_BIT | GL_CURRENT_BIT);
  glDisable(GL_LIGHTING);
  glDisable(GL_DEPTH_TEST);
  glEnable(GL_BLEND);
  glMatrixMode(GL_PROJECTION);
  glPushMatrix();
  ViewCamera::SetOverlayProjection(width_, height_);  // also resets the model-view
  const int top = height_ / 2, left = -width_ / 2;

  const std::string warning = UncalibratedWarning();
  if (!warning.empty()) {
    const int x = -150, y = top - 12;
    glColor4f(0.1f, 0.1f, 0.1f, 0.8f);
    glRectf(x - 6, y - 5, x + gldraw::TextWidth(warning) + 6, y + 12);
    glColor3f(0.8f, 0.8f, 0);
    gldraw::Text(x, y, 0, warning);
  }
  if (draw.rateOverlay) {
    glColor3f(0.7f, 0.7f, 0.7f);
    const std::string text = overlayText_.empty() ? Format("fps: %.1f", sceneFps()) : overlayText_;
    gldraw::Text(left + 6, top - 14, 0, text);
  }
  if (interaction_ == kBox || interaction_ == kBoxAdd) DrawBox();

  glMatrixMode(GL_PROJECTION);
  glPopMatrix();
  glMatrixMode(GL_MODELVIEW);
  glPopAttrib();
}

void SceneView::Draw2d() {
  glClearColor(0.05f, 0.05f, 0.08f, 1);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
  glDisable(GL_LIGHTING);
  glDisable(GL_DEPTH_TEST);
  glEnable(GL_BLEND);
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  glOrtho(0, width_, 0, height_, -1, 1);
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  if (!session_) return;
  const std::vector<ZORCamera>& cameras = session_->cameras;
  const int n = static_cast<int>(cameras.size());
  selection_.ResizeCameras(cameras.size());
  const CameraGrid grid = CameraGrid::Layout(n, width_, height_);
  const float title = 16;
  const bool aimingMarks = aiming::On(*this);
  for (int i = 0; i < n; ++i) {
    double x, y;
    grid.Origin(i, x, y);
    const float w = float(grid.cellWidth), h = float(grid.cellHeight);
    const ZORDetector* detector = nullptr;
    for (const ZORDetector& d : session_->detectors) {
      if (d.camera == cameras[i].id) detector = &d;
    }
    // Frame of the cell; yellow when the camera is selected.
    if (selection_.CameraSelected(i)) {
      glColor3f(1, 1, 0);
    } else {
      Grey(0.35f);
    }
    glBegin(GL_LINE_LOOP);
    glVertex2f(x + 1, y + 1), glVertex2f(x + w - 1, y + 1), glVertex2f(x + w - 1, y + h - 1),
        glVertex2f(x + 1, y + h - 1);
    glEnd();
    glColor3f(0.9f, 0.9f, 0.9f);
    gldraw::Text(float(x + 4), float(y + h - 12), 0, CameraCellTitle(cameras[i], detector));
    // The sensor, fitted into the cell under the title.
    const float sensorW = detector && detector->width > 0 ? float(detector->width) : 1280.f;
    const float sensorH = detector && detector->height > 0 ? float(detector->height) : 1024.f;
    const float k = std::min((w - 8) / sensorW, (h - title - 8) / sensorH);
    if (!(k > 0)) continue;
    const float ox = float(x) + (w - sensorW * k) / 2, oy = float(y) + 4;
    Grey(0.2f);
    glBegin(GL_LINE_LOOP);
    glVertex2f(ox, oy), glVertex2f(ox + sensorW * k, oy), glVertex2f(ox + sensorW * k, oy + sensorH * k),
        glVertex2f(ox, oy + sensorH * k);
    glEnd();
    for (const ZORImage& im : session_->images) {
      if (im.camera != cameras[i].id) continue;
      glPointSize(std::max(2.0f, std::min(12.0f, im.size * k)));
      glBegin(GL_POINTS);
      const float b = 0.4f + 0.6f * std::clamp(im.intensity, 0.0f, 1.0f);
      glColor3f(b, b, b * 0.8f);
      glVertex2f(ox + im.u * k, oy + (sensorH - im.v) * k);
      glEnd();
    }
    if (aimingMarks)
      aiming::DrawCell(*session_, cameras[i].id, float(x), float(y), w, h, ox, oy, sensorW * k, sensorH * k);
    overlay::DrawCell2d(calibration, cameras[i].id, ox, oy, sensorW * k, sensorH * k);
  }
  glPointSize(1);
}
