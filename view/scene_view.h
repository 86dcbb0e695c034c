// SceneView: the toolkit-independent 3D view. It owns the camera, the drawing
// switches, the marker store (filters and trails), the selection and the
// rotation rings; it interprets device-neutral mouse and key events and draws
// one frame of the session's data with OpenGL. A widget layer (GLView) feeds
// it events in device pixels and calls Paint() with its context current.
#pragma once

#include <GL/gl.h>

#include <cstdint>
#include <string>
#include <vector>

#include "view/calibration_overlay.h"
#include "view/frame_clock.h"
#include "view/gl_draw.h"
#include "view/manipulator.h"
#include "view/marker_store.h"
#include "view/mouse_state.h"
#include "view/orientation.h"
#include "view/selection.h"
#include "view/trail_buffer.h"
#include "view/view_camera.h"

class ZOR;

// Settings given once (command line and defaults).
struct ViewOptions {
  float markerScale = 1.0f;    // marker radius factor (5 mm at 1)
  float viewScale = 0.01f;     // scene units per millimetre
  float gridLength = 1000.0f;  // millimetres between coarse grid lines
  int gridCount = 10;          // coarse divisions
  std::string gridLabel = "m";
  float coneLength = 3000.0f;  // camera cone depth, millimetres
  float homeDistance = 60.0f;  // where a reset puts the camera
  float homeElevation = 30.0f;
  float homeAzimuth = 30.0f;

  // Empty when usable, else what is wrong.
  std::string Check() const;
};

// What is drawn; toggled by the Drawing menu and the keys.
struct DrawSwitches {
  bool fill = false;        // solid markers instead of wire
  bool shadows = false;
  bool markerIds = false;
  bool cameras = true;
  bool cones = false;
  bool stands = false;
  bool cameraLabels = true;
  bool cameraAxes = true;
  bool showDistance = false;
  bool follow = false;
  bool bySlot = false;      // colour markers by slot (colour table) instead of tracker
  bool grid = true;
  bool rigidMarkers = true;
  bool rigidPositions = true;
  bool rateOverlay = true;
  bool manipulator = true;  // rings around a single selected rigid body
};

class SceneView {
 public:
  enum Interaction { kIdle = 0, kBox = 1, kBoxAdd = 2, kCtrlDrag = 3, kLeftDrag = 4 };
  static constexpr uint32_t kDoubleClickUs = 200000;

  explicit SceneView(const ViewOptions& options = {});
  virtual ~SceneView();

  // ---- data ----
  // The session whose frame is drawn (read during Paint); null draws "!zor".
  void SetSession(ZOR* session) { session_ = session; }
  ZOR* session() const { return session_; }
  // Call once for every frame the session delivers (before drawing it):
  // filters the markers in place when filtering is on and records trails.
  void ProcessFrame();

  // ---- GL stages (context current) ----
  void InitializeGL();
  void Resize(int width, int height);  // device pixels
  void Paint();
  // The context is about to go: drop the display lists.
  void ReleaseGL();

  // ---- input (device pixels, y from the bottom) ----
  // Returns true when the view should be repainted.
  bool Mouse(const MouseState& m);
  bool Key(int ch, bool down, const MouseState& m);

  // ---- view operations the window calls ----
  void ResetCamera();
  void SetView2d(bool on);
  bool view2d() const { return view2d_; }
  void FocusSelection();          // centre on the selection's middle
  void ClearSelection();          // Escape: selection, then the nine sets
  int UseSelectionSet(int n);     // digits 1..9 (see Selection::UseSet)
  void SetViewScale(float s);
  float viewScale() const { return options_.viewScale; }
  // Scene units per unit of the session's positions: the session may receive
  // positions scaled by the server (metres for calibration), sizes stay in mm.
  float PositionScale() const;
  void SetMarkerScale(float s) { if (s > 0 && s < 1e6f) options_.markerScale = s; }
  float markerScale() const { return options_.markerScale; }
  void SetConeLength(float mm);
  float coneLength() const { return options_.coneLength; }
  void SetGrid(float length, int count, const std::string& label);
  void SetSlotColour(int slot, const Colour& c);  // colour table for "slots"
  const std::vector<Colour>& slotColours() const { return slotColours_; }
  void SetOverlayText(const std::string& text) { overlayText_ = text; }

  // Picks: the marker under a window pixel (ray test; toggles and
  // recentres), and OpenGL selection over a region (names of what was hit).
  int ClickMarker(int x, int y);
  std::vector<uint32_t> PickNames(const PickRegion& region);
  // A box drag from the drag start to (x, y): replaces the selection, or adds
  // to it; returns the number of hits.
  int BoxSelect(int x, int y, bool add);

  DrawSwitches draw;
  std::vector<Vec3> rulers;            // millimetres
  std::vector<Vec3> alignmentPoints;   // millimetres: origin, X, Z
  // Drawn highlighted until the view clock passes this (a point just taken).
  uint32_t alignmentHighlightUntil = 0;
  // Coverage, camera-pair links and moved cameras of a calibration, drawn over both views.
  CalibrationOverlay calibration;
  // Rigid bodies are drawn in this orientation of their own axes.
  OrientationMatrix orientation = IdentityOrientation();

  ViewCamera& camera() { return camera_; }
  const ViewCamera& camera() const { return camera_; }
  MarkerStore& markerStore() { return store_; }
  const MarkerStore& markerStore() const { return store_; }
  Selection& selection() { return selection_; }
  const Selection& selection() const { return selection_; }
  Manipulator& manipulator() { return manipulator_; }
  int interaction() const { return interaction_; }
  int pixelWidth() const { return width_; }
  int pixelHeight() const { return height_; }
  uint32_t frames() const { return frames_; }
  double sceneFps() const { return fpsSampler_.fps(); }
  MicroClock& clock() { return clock_; }
  // The measurement labels of the selection ("x y z (d:...)"), in order.
  std::vector<std::string> MeasurementLabels() const;
  // "WARNING: n uncalibrated cameras detected: ..." or empty.
  std::string UncalibratedWarning() const;
  // Title of a camera cell in the 2D view.
  static std::string CameraCellTitle(const ZORCamera& camera, const ZORDetector* detector);
  static std::string MarkerLabel(int32_t id, const std::string& trackerName, bool manyTrackers);

 protected:
  // Hooks for the widget layer.
  virtual void OnSelectionChanged() {}
  virtual void OnManipulated() {}
  virtual void DoubleClick();
  // Picking and 3D dragging: first look at every mouse event.
  virtual bool Interact3D(const MouseState& m);

 private:
  // Input.
  bool Mouse2d(const MouseState& m);
  bool Zoom(const MouseState& m);
  void WheelZoom(bool forward, const MouseState& m);
  void Pan(const MouseState& m);
  bool PointerRayAt(int x, int y, PointerRay& ray, const Vec3& depthOf);
  void UpdateFollow();
  bool SelectionMiddle(bool seenOnly, bool withRigids, Vec3* middle) const;
  void AttachManipulator();

  // Drawing (scene_draw.cpp).
  void DrawScene();
  void DrawGrid();
  void DrawRuler(const Vec3& at);
  void DrawCameras();
  void DrawCone(const ZORCamera& c);
  void DrawCamera(const ZORCamera& c, int index);
  void DrawRigids(bool forPick);
  void DrawMarkers(bool forPick);
  void DrawMarker(const ZORMarker& m, const Colour& colour, bool selected);
  void DrawTrails();
  void DrawMeasurements();
  void DrawCentreMark(const Vec3& p);
  void DrawHighlights();
  void DrawMarkerIds();
  void DrawAlignment();
  void DrawManipulator(bool forPick);
  void DrawOverlay();
  void DrawBox();
  void Draw2d();
  void DrawPickables();
  Colour MarkerColour(size_t index, const ZORMarker& m) const;
  // Per marker of the frame: drawn (seen, and not hidden as a rigid body's).
  std::vector<char> ShownMarkers() const;
  std::string TrackerName(int trackerId) const;
  bool ManyTrackers() const;

  ViewOptions options_;
  ViewCamera camera_;
  MarkerStore store_;
  Selection selection_;
  Manipulator manipulator_;
  gldraw::DisplayLists lists_;
  MicroClock clock_;
  FrameRateSampler fpsSampler_;
  ZOR* session_ = nullptr;

  int width_ = 1, height_ = 1;
  bool view2d_ = false;
  int interaction_ = kIdle;
  int dragStartX_ = 0, dragStartY_ = 0;
  int pressX_ = 0, pressY_ = 0;
  int boxX_ = 0, boxY_ = 0;
  uint32_t lastLeftPress_ = 0;
  bool leftSeen_ = false;
  Vec3 followPoint_;
  bool followValid_ = false;
  bool gridDirty_ = true;
  bool camerasChanged_ = true;
  std::vector<GLuint> coneLists_;
  std::vector<ZORCamera> coneCameras_;  // the cameras the cone lists were built from
  std::vector<Colour> slotColours_;
  std::string overlayText_;
  uint32_t frames_ = 0;
  std::vector<uint32_t> pickBuffer_;
  TrailBuffer trails_;
};
