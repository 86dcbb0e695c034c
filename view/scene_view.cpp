#include "view/scene_view.h"

#include <GL/glu.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "link/zortk.h"
#include "view/camera_grid.h"

namespace {
constexpr double kDegree = M_PI / 180.0;
constexpr int kClickSlop = 2;        // pixels a click may move and still be a click
constexpr float kMinPickPixels = 6;  // a marker is clickable this close on screen

Vec3 Scaled(float x, float y, float z, float s) { return {x * s, y * s, z * s}; }
Vec3 Add(const Vec3& a, const Vec3& b, float s = 1) {
  return {a[0] + b[0] * s, a[1] + b[1] * s, a[2] + b[2] * s};
}
}  // namespace

std::string ViewOptions::Check() const {
  if (!(markerScale > 0)) return "marker scale must be above 0";
  if (!(viewScale > 0)) return "view scale must be above 0";
  if (!(gridLength > 0) || gridCount < 1) return "grid length and count must be above 0";
  if (!(coneLength > 0)) return "cone length must be above 0";
  if (!(homeDistance > 0)) return "home distance must be above 0";
  return {};
}

SceneView::SceneView(const ViewOptions& options) : options_(options) {
  if (!options_.Check().empty()) options_ = ViewOptions{};
  ResetCamera();
}

SceneView::~SceneView() = default;

void SceneView::ProcessFrame() {
  if (!session_) return;
  store_.Process(session_->markers, session_->frequency);
}

// ---------------------------------------------------------------- GL stages

void SceneView::InitializeGL() {
  lists_.Forget();  // a new context holds none of the old lists
  coneLists_.clear();
  trails_.Forget();
  gridDirty_ = true;
  gldraw::SetUpLights();
}

void SceneView::ReleaseGL() {
  lists_.Delete();
  for (GLuint id : coneLists_) glDeleteLists(id, 1);
  coneLists_.clear();
  trails_.Release();
}

void SceneView::Resize(int width, int height) {
  width_ = std::max(width, 1);
  height_ = std::max(height, 1);
  glViewport(0, 0, width_, height_);
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  camera_.SetProjection(width_, height_);
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
}

// ---------------------------------------------------------------- operations

// Every camera field goes back to its default (mode, field of view, clipping,
// bounds, velocities, centre). Distance and angles are the exception, by
// choice: the defaults (0, looking level) would put the eye on the floor at
// the origin, so a reset stands back at the home position from which the
// operator sees the room, as at start-up.
void SceneView::ResetCamera() {
  camera_.Reset();
  camera_.distance = options_.homeDistance;
  camera_.rotation.set(options_.homeElevation, options_.homeAzimuth, 0);
  camera_.Update();
}

void SceneView::SetView2d(bool on) {
  view2d_ = on;
  interaction_ = kIdle;
}

void SceneView::SetViewScale(float s) {
  if (!(s > 0)) return;
  // Keep looking at the same physical point.
  const float ratio = s / options_.viewScale;
  camera_.wantedCentre.scale(ratio);
  camera_.centre.scale(ratio);
  options_.viewScale = s;
  gridDirty_ = camerasChanged_ = true;
  if (manipulator_.attached()) manipulator_.Attach(manipulator_.start, s);
}

void SceneView::SetConeLength(float mm) {
  if (!(mm > 0)) return;
  options_.coneLength = mm;
  camerasChanged_ = true;
}

void SceneView::SetGrid(float length, int count, const std::string& label) {
  if (length > 0) options_.gridLength = length;
  if (count > 0) options_.gridCount = count;
  options_.gridLabel = label;
  gridDirty_ = true;
}

void SceneView::SetSlotColour(int slot, const Colour& c) {
  if (slot < 0) return;
  if (size_t(slot) >= slotColours_.size()) slotColours_.resize(slot + 1, Colour().set(1, 1, 1, 1));
  slotColours_[slot] = c;
}

float SceneView::PositionScale() const {
  const float units_per_mm = session_ && session_->scale > 0 ? session_->scale : 1.0f;
  return options_.viewScale / units_per_mm;
}

// Middle of the selected markers (only those seen this frame when
// `seenOnly`) and, unless `withRigids` is false, of the selected bodies.
bool SceneView::SelectionMiddle(bool seenOnly, bool withRigids, Vec3* middle) const {
  if (!session_) return false;
  Vec3 sum;
  int n = 0;
  for (int i : selection_.AllMarkers()) {
    if (i < 0 || size_t(i) >= session_->markers.size()) continue;
    const ZORMarker& m = session_->markers[i];
    if (seenOnly && !(m.cond > 0)) continue;
    sum = Add(sum, Scaled(m.x, m.y, m.z, PositionScale()));
    ++n;
  }
  for (int i : selection_.rigids) {
    if (!withRigids || i < 0 || size_t(i) >= session_->rigids.size()) continue;
    const float* p = session_->rigids[i].pose;
    sum = Add(sum, Scaled(p[0], p[1], p[2], PositionScale()));
    ++n;
  }
  if (n == 0) return false;
  *middle = sum.scale(1.0f / n);
  return true;
}

void SceneView::FocusSelection() {
  if (!SelectionMiddle(false, true, &camera_.wantedCentre)) return;
  camera_.ApplyBounds();
}

void SceneView::ClearSelection() {
  if (selection_.Empty()) {
    selection_.ForgetSets();  // a second Escape forgets the numbered sets
  } else {
    selection_.ClearAll();
    manipulator_.Detach();
    OnSelectionChanged();
  }
}

int SceneView::UseSelectionSet(int n) {
  if (!session_) return 0;
  const int result =
      selection_.UseSet(n, session_->markers, session_->rigids, session_->cameras);
  if (result == 2) {
    AttachManipulator();
    OnSelectionChanged();
  }
  return result;
}

void SceneView::AttachManipulator() {
  if (session_ && selection_.rigids.size() == 1 &&
      size_t(selection_.rigids[0]) < session_->rigids.size()) {
    Pose pose;
    std::copy(session_->rigids[selection_.rigids[0]].pose,
              session_->rigids[selection_.rigids[0]].pose + 7, pose.v);
    manipulator_.Attach(pose, PositionScale());
  } else {
    manipulator_.Detach();
  }
}

void SceneView::UpdateFollow() {
  followValid_ = SelectionMiddle(true, false, &followPoint_);
  if (followValid_ && draw.follow) camera_.wantedCentre = followPoint_;
}

// ---------------------------------------------------------------- picking

int SceneView::ClickMarker(int x, int y) {
  if (!session_) return -1;
  Vec3 origin, direction;
  if (!camera_.Unproject(x, y, origin, direction)) return -1;
  // The marker's own radius, but never less than a few pixels on screen: a
  // deliberate widening, as at the usual view scale a marker is a pixel or two
  // across and could hardly be hit.
  const float radius = std::max(5 * options_.markerScale * options_.viewScale,
                                kMinPickPixels * camera_.PixelSize());
  const int index = PickMarker(session_->markers, PositionScale(), origin, direction, radius);
  if (index < 0) return -1;
  selection_.ToggleMarker(index);
  const ZORMarker& m = session_->markers[index];
  camera_.wantedCentre = Scaled(m.x, m.y, m.z, PositionScale());
  camera_.ApplyBounds();
  OnSelectionChanged();
  return index;
}

std::vector<uint32_t> SceneView::PickNames(const PickRegion& region) {
  size_t records = 4;
  if (session_) {
    records += session_->markers.size() + session_->rigids.size() + session_->cameras.size();
  }
  // Room for every pickable object (4 entries a record), never less than 1024.
  pickBuffer_.assign(std::max<size_t>(1024, records * 4 + 16), 0);
  glSelectBuffer(static_cast<GLsizei>(pickBuffer_.size()), pickBuffer_.data());
  glRenderMode(GL_SELECT);

  glViewport(0, 0, width_, height_);
  GLint viewport[4] = {0, 0, width_, height_};
  glMatrixMode(GL_PROJECTION);
  glPushMatrix();
  glLoadIdentity();
  gluPickMatrix(region.x, region.y, region.w, region.h, viewport);
  camera_.SetProjection(width_, height_);
  glMatrixMode(GL_MODELVIEW);
  glPushMatrix();
  glLoadIdentity();
  camera_.SetUp(false);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
  glEnable(GL_DEPTH_TEST);
  glInitNames();
  glPushName(0);
  DrawPickables();
  glMatrixMode(GL_MODELVIEW);
  glPopMatrix();
  glMatrixMode(GL_PROJECTION);
  glPopMatrix();
  glMatrixMode(GL_MODELVIEW);
  const int hits = glRenderMode(GL_RENDER);
  return DecodeHits(pickBuffer_.data(), pickBuffer_.size(), hits);
}

int SceneView::BoxSelect(int x, int y, bool add) {
  const PickRegion region = PickRegion::Box(dragStartX_, dragStartY_, x, y);
  if (!add) selection_.ClearLists();
  const std::vector<uint32_t> names = PickNames(region);
  if (session_) selection_.ResizeCameras(session_->cameras.size());
  for (uint32_t name : names) {
    const int index = static_cast<int>(name % kNameRangeSize);
    switch (name / kNameRangeSize * kNameRangeSize) {
      case kNameMarkerBase: selection_.AddDragMarker(index); break;
      case kNameRigidBase:
        if (!selection_.RigidSelected(index)) selection_.rigids.push_back(index);
        break;
      case kNameCameraBase:
        if (size_t(index) < selection_.cameras.size()) selection_.cameras[index] = 1;
        break;
      default: break;
    }
  }
  AttachManipulator();
  OnSelectionChanged();
  return static_cast<int>(names.size());
}

bool SceneView::PointerRayAt(int x, int y, PointerRay& ray, const Vec3& depthOf) {
  if (!camera_.Unproject(x, y, ray.origin, ray.direction)) return false;
  ray.eye = camera_.eye;
  ray.orthographic = camera_.orthographic;
  ray.viewDirection = camera_.ViewDirection();
  // The pointer point lies on the ray at the object's depth along the view.
  const float along = dot(difference(depthOf, ray.origin), ray.viewDirection);
  const float cosine = dot(ray.direction, ray.viewDirection);
  ray.point = Add(ray.origin, ray.direction, cosine > 1e-6f ? along / cosine : along);
  return true;
}

// ---------------------------------------------------------------- input

void SceneView::DoubleClick() {
  interaction_ = kIdle;
  if (manipulator_.state != Manipulator::kNone) manipulator_.Release();
}

bool SceneView::Interact3D(const MouseState& m) {
  // A drag on a ring turns the rigid body.
  if (manipulator_.state != Manipulator::kNone) {
    if (m.Released(kLeftBit)) {
      manipulator_.Release();
      interaction_ = kIdle;
      OnManipulated();
      return true;
    }
    if (m.Only(kLeftBit) && (m.previousButtons & kLeftBit) && m.modifiers == 0) {
      PointerRay ray;
      if (PointerRayAt(m.x, m.y, ray, manipulator_.Centre()) && manipulator_.Drag(ray)) {
        OnManipulated();
      }
      return true;
    }
  }
  if (m.Pressed(kLeftBit) && m.Only(kLeftBit) && m.modifiers == 0 && draw.manipulator &&
      manipulator_.attached()) {
    for (uint32_t name : PickNames(PickRegion::Around(m.x, m.y))) {
      if (name < kNameRingX || name > kNameRingFree) continue;
      PointerRay ray;
      if (PointerRayAt(m.x, m.y, ray, manipulator_.Centre()) &&
          manipulator_.Press(static_cast<int>(name), ray)) {
        interaction_ = kIdle;
        return true;
      }
      break;
    }
  }
  // A left click that did not drag picks the marker under the pointer.
  if (m.Released(kLeftBit) && interaction_ == kLeftDrag &&
      std::abs(m.x - pressX_) <= kClickSlop && std::abs(m.y - pressY_) <= kClickSlop) {
    ClickMarker(m.x, m.y);
  }
  // The end of a box drag selects what the box covers.
  if (m.Released(kMiddleBit) && (interaction_ == kBox || interaction_ == kBoxAdd)) {
    BoxSelect(m.x, m.y, interaction_ == kBoxAdd);
  }
  return false;
}

bool SceneView::Mouse2d(const MouseState& m) {
  if (!(m.Pressed(kLeftBit) && m.Only(kLeftBit)) || !session_) return false;
  const int n = static_cast<int>(session_->cameras.size());
  const int cell = CameraGrid::Layout(n, width_, height_).CellAt(m.x, m.y);
  selection_.ResizeCameras(n);
  if (cell < 0 || cell >= n) return false;
  selection_.ToggleCamera(cell);
  OnSelectionChanged();
  return true;
}

bool SceneView::Mouse(const MouseState& m) {
  if (view2d_) return Mouse2d(m);
  if (Interact3D(m)) return true;

  // Double click: re-centre on the followed point, or the double-click action.
  if (m.Pressed(kLeftBit)) {
    const uint32_t now = clock_.Now();
    if (m.Only(kLeftBit) && m.modifiers == 0 && leftSeen_ && now - lastLeftPress_ < kDoubleClickUs) {
      leftSeen_ = false;
      if (followValid_) {
        camera_.wantedCentre = followPoint_;
      } else {
        DoubleClick();
      }
      return true;
    }
    lastLeftPress_ = now;
    leftSeen_ = true;
  }
  if (m.Pressed(kLeftBit) && (m.previousButtons & ~kLeftBit) == 0) {
    interaction_ = m.Control() ? kCtrlDrag : kLeftDrag;
    pressX_ = m.x, pressY_ = m.y;
    return false;
  }
  if (m.Pressed(kMiddleBit) && !(m.buttons & kRightBit)) {
    interaction_ = !m.Control() ? kBox : (m.ShiftKey() ? kCtrlDrag : kBoxAdd);
    dragStartX_ = boxX_ = m.x;
    dragStartY_ = boxY_ = m.y;
    return true;
  }
  if (Zoom(m)) return true;
  if (m.buttons == 0 && m.previousButtons != 0) {
    camera_.wantedCentre = camera_.centre;  // a pan that ran into the bounds stops there
    interaction_ = kIdle;
    return true;
  }
  if (interaction_ == kBox || interaction_ == kBoxAdd) {
    boxX_ = m.x, boxY_ = m.y;
    return true;
  }
  const bool leftDrag = (m.buttons & kLeftBit) && (m.previousButtons & kLeftBit);
  if (leftDrag && (m.modifiers & ~kShift) == 0 && !(m.buttons & kRightBit)) {
    Pan(m);
    return true;
  }
  const bool rightDrag = (m.buttons & kRightBit) && (m.previousButtons & kRightBit);
  if (rightDrag && m.modifiers == 0 && !(m.buttons & kLeftBit)) {
    camera_.rotation[0] += static_cast<float>(m.dy);
    camera_.rotation[1] -= static_cast<float>(m.dx);
    return true;
  }
  return false;
}

bool SceneView::Zoom(const MouseState& m) {
  if (m.Held(kLeftBit | kRightBit) && (m.previousButtons & (kLeftBit | kRightBit)) == (kLeftBit | kRightBit)) {
    camera_.distance += m.dy * camera_.distance * 0.01f;
    return true;
  }
  if (m.Held(kMiddleBit | kRightBit)) {
    camera_.distance = 20;
    return true;
  }
  if (m.Pressed(kWheelForwardBit) && m.Only(kWheelForwardBit)) {
    WheelZoom(true, m);
    return true;
  }
  if (m.Pressed(kWheelBackwardBit) && m.Only(kWheelBackwardBit)) {
    WheelZoom(false, m);
    return true;
  }
  return false;
}

void SceneView::WheelZoom(bool forward, const MouseState& m) {
  const float f = m.ShiftKey() ? 1.1f : 1.5f;
  if (!camera_.SetDistance(forward ? camera_.distance / f : camera_.distance * f)) return;
  if (!m.Control()) return;
  // Towards the point under the pointer on the horizontal plane of the centre.
  Vec3 origin, direction;
  if (!camera_.Unproject(m.x, m.y, origin, direction) || std::fabs(direction[1]) < 1e-6f) return;
  const float t = (camera_.centre[1] - origin[1]) / direction[1];
  if (!(t > 0)) return;
  const Vec3 toHit = difference(Add(origin, direction, t), camera_.centre);
  camera_.wantedCentre = Add(camera_.wantedCentre, toHit, forward ? 1 - 1 / f : -(f - 1));
  camera_.ApplyBounds();
  camera_.OrbitEye();
}

void SceneView::Pan(const MouseState& m) {
  const double b = camera_.rotation[1] * kDegree;
  const float k = camera_.PixelSize();
  const Vec3 right(float(std::cos(b)), 0, float(std::sin(b)));
  const Vec3 forward(float(std::sin(b)), 0, float(-std::cos(b)));
  camera_.wantedCentre = Add(Add(camera_.wantedCentre, right, m.dx * k), forward, m.dy * k);
}

bool SceneView::Key(int ch, bool down, const MouseState&) {
  ViewCamera& c = camera_;
  if (!down) {
    if (ch == 'e' || ch == 'q') c.velocity.rotation[1] = 0;
    return false;
  }
  switch (ch) {
    case '\t': c.mode = c.mode == ViewCamera::kOrbit ? ViewCamera::kLookAround : ViewCamera::kOrbit; break;
    case 'x': c.rotation.set(0, 270, 0); break;
    case 'X': c.rotation.set(0, 90, 0); break;
    case 'y': c.rotation.set(90, 0, 0); break;
    case 'Y': c.rotation.set(270, 0, 0); break;
    case 'z': c.rotation.set(0, 0, 0); break;
    case 'Z': c.rotation.set(0, 180, 0); break;
    case 'e': c.velocity.rotation[1] = 1; break;
    case 'q': c.velocity.rotation[1] = -1; break;
    case 'E': c.velocity.rotation[1] += 0.06f; break;
    case 'Q': c.velocity.rotation[1] -= 0.05f; break;
    case 'W': c.velocity.rotation[1] = 0; break;
    case 'o': c.orthographic = !c.orthographic; break;
    case 'R': ResetCamera(); break;
    case '[':
      if (options_.coneLength > 200) options_.coneLength -= 200, camerasChanged_ = true;
      break;
    case ']':
      if (options_.coneLength < 5000) options_.coneLength += 200, camerasChanged_ = true;
      break;
    case 'N': draw.cones = !draw.cones; break;
    case 'b':
      draw.rigidMarkers = !draw.rigidMarkers;
      std::printf("Show Rigid Markers=%d\n", draw.rigidMarkers ? 1 : 0);
      std::fflush(stdout);
      break;
    case 'B':
      draw.rigidPositions = !draw.rigidPositions;
      std::printf("Show Rigid Positions=%d\n", draw.rigidPositions ? 1 : 0);
      std::fflush(stdout);
      break;
    // Display switches and rulers.
    case 'g': draw.grid = !draw.grid; break;
    case 'n': draw.markerIds = !draw.markerIds; break;
    case 'S': draw.shadows = !draw.shadows; break;
    case 'd': draw.showDistance = !draw.showDistance; break;
    case 'C': draw.cameras = !draw.cameras; break;
    case 'f': draw.fill = !draw.fill; break;
    case 'l': rulers.push_back(Vec3(c.centre).scale(1 / options_.viewScale)); break;
    case 'L': rulers.clear(); break;
    case 'c': ClearSelection(); break;
    case 'p':
      std::printf("%s\n", c.ToString().c_str());
      std::fflush(stdout);
      break;
    default: return false;
  }
  return true;
}
