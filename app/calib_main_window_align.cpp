// The alignment side of the main window: the kind chooser with its object
// check, the Align / Snapshot / Clear / Flip Up controls, the three markers
// picked for kind 2, the per-frame alignment with its stillness messages,
// the alignment trackers and the view orientation kept in ".orientation".
#include <QAction>
#include <QComboBox>
#include <QFileDialog>
#include <QStatusBar>
#include <algorithm>

#include "app/calib_main_window.h"
#include "app/message_box.h"
#include "calib/calib_wizard.h"
#include "calib/orientation_bar.h"
#include "view/gl_view.h"
#include "view/orientation.h"

namespace {

constexpr char kOrientationFile[] = ".orientation";
constexpr int kAlignMessageMs = 1000;
constexpr uint32_t kHighlightUs = 600000;

}  // namespace

void CalibMainWindow::connectAlignment() {
  connect(view(), &GLView::sg_SelectionChanged, this, &CalibMainWindow::pickAlignmentMarkers);
  // A missing file keeps the view as it is.
  if (ReadOrientationFile(kOrientationFile, view()->orientation)) view()->update();
}

void CalibMainWindow::sl_Align1() { setAlignKind(1); }
void CalibMainWindow::sl_Align2() { setAlignKind(2); }
void CalibMainWindow::sl_Align3() { setAlignKind(3); }

// Check marks, chooser and the wand's own controls for the session's kind.
void CalibMainWindow::showAlignKind() {
  const int kind = calib().alignKind;
  setEntryChecked(kAlignRigid, kind == 1);
  setEntryChecked(kAlignObject, kind == 2);
  setEntryChecked(kAlignWand, kind == 3);
  if (kind >= 1 && kind <= 3) alignKindBox_->setCurrentIndex(kind - 1);
  for (QAction* button : {snapshotButton_, clearButton_, flipButton_}) button->setVisible(kind == 3);
}

void CalibMainWindow::setAlignKind(int kind) {
  CalibSession& engine = calib();
  const bool present = engine.setAlignKind(kind);
  markerSelection_ = kind == 2;
  showAlignKind();
  pickAlignmentMarkers();
  if (present || loadAlignObject(CalibSession::alignObjectTracker(kind))) return;
  ShowInformation(this, QStringLiteral("Error"),
                  QStringLiteral("No object was selected, alignment will proceed using markers only."));
  setAlignKind(2);
}

// Loads the object's tracker from a file the user chooses.
bool CalibMainWindow::loadAlignObject(int32_t trackerId) {
  const QString file =
      chooseTrackerFile ? chooseTrackerFile(trackerId)
                        : QFileDialog::getOpenFileName(
                              this, QStringLiteral("Choose File to Add to Tracker List"), QString(),
                              QStringLiteral("Tracker Files (*.rb *.pt)"));
  if (file.isEmpty()) return false;
  auto tracker = std::make_unique<Tracker>(ZOR_RIGID_TRACKER, trackerId, file.toStdString());
  if (tracker->markers.empty()) return false;
  calib().replaceTracker(std::move(tracker));
  if (trackerId == kWandTrackerId) calib().wandChanged();
  return true;
}

void CalibMainWindow::sl_Align() {
  CalibSession& engine = calib();
  if (engine.capturing || engine.calibrating) return;
  if (!engine.aligning) {
    setAlignKind(engine.alignKind);
    // Points taken before belong to an earlier frame of the server.
    engine.clearAlignPoints();
    if (markerSelection_) {
      view()->selection().ClearLists();
      pickAlignmentMarkers();
    }
  }
  const int result = engine.startAlignment();
  if (result == 1) {
    view()->markerStore().Reset(engine.frequency);
    if (view()->view2d()) view()->sl_View2d();
  } else if (result == -1) {
    view()->alignmentPoints.clear();
    view()->SetOverlayText(std::string());
  }
  showAlignmentPoints();
  updateControls();
}

void CalibMainWindow::sl_Flip() {
  calib().flipAlignment();
  view()->update();
}

void CalibMainWindow::sl_Clear() {
  calib().clearAlignPoints();
  showAlignmentPoints();
}

// The next resting place is taken by hand; automatic points stop until the
// session is opened again.
void CalibMainWindow::sl_CapturePos() {
  calib().stillness.requested = true;
  calib().autoSnapshot = false;
}

// Kind 2: the markers clicked in the view, in click order, are the origin,
// the X point and the plane point. The view says which one comes next.
void CalibMainWindow::pickAlignmentMarkers() {
  if (!markerSelection_) {
    view()->SetOverlayText(std::string());
    return;
  }
  const std::vector<int>& picked = view()->selection().markers;
  calib().alignIndices.assign(picked.begin(), picked.begin() + std::min<size_t>(picked.size(), 3));
  static const char* kNext[] = {"pick the origin marker", "pick the marker on +X",
                                "pick the marker on the +Z side", ""};
  view()->SetOverlayText(kNext[calib().alignIndices.size()]);
  showAlignmentPoints();
}

void CalibMainWindow::processAlignment() {
  CalibSession& engine = calib();
  if (orientationBar_) orientationBar_->processFrame();
  if (!engine.aligning) return;
  if (engine.computeAlignment()) view()->camera().wantedCentre = view()->camera().centre = Vec3();
  engine.applyPendingAlignment();
  // The wizard counts the wand's resting places; at the third it saves,
  // which ends the alignment.
  if (wizardShown() && engine.alignKind == 3) {
    wizard_->sl_CalibNum(engine.alignPointCount());
    if (!engine.aligning) return;
  }
  const StillnessDetector::Step step = engine.detectStillness();
  if (step.moved) statusBar()->showMessage(QStringLiteral("movement detected"), kAlignMessageMs);
  if (step.capture) {
    view()->alignmentHighlightUntil = view()->clock().Now() + kHighlightUs;
    showAlignmentPoints();
  }
  if (step.waiting) statusBar()->showMessage(QStringLiteral("waiting for movement"), kAlignMessageMs);
  if (markerSelection_) showAlignmentPoints();  // the picked markers move with the frame
}

// The alignment's points as the view shows them (aligned, in millimetres).
void CalibMainWindow::showAlignmentPoints() {
  const CalibSession& engine = calib();
  std::vector<Vec3>& shown = view()->alignmentPoints;
  shown.clear();
  if (!engine.aligning) return;
  float m[16];
  convert_pm(engine.pose.data(), m);
  const auto add = [&](const ZORMarker& p, bool raw) {
    float at[3] = {p.x, p.y, p.z};
    if (raw) {  // captured points are kept unaligned
      float turned[3];
      mult_mv3_v3(m, at, turned);
      for (int i = 0; i < 3; ++i) at[i] = turned[i] + m[12 + i];
    }
    shown.push_back(Vec3(at[0], at[1], at[2]).scale(1.0f / engine.scale));
  };
  if (markerSelection_) {
    for (int32_t index : engine.alignIndices)
      if (index >= 0 && static_cast<size_t>(index) < engine.markers.size())
        add(engine.markers[index], false);
  } else if (engine.alignKind == 3) {
    for (size_t i = 0; i < engine.alignWandPoints.size() && i < 3; ++i)
      add(engine.alignWandPoints[i], true);
  }
}

// After a save that ended an alignment.
void CalibMainWindow::alignmentSaved() {
  view()->alignmentPoints.clear();
  view()->SetOverlayText(std::string());
  if (orientationMode_) WriteOrientationFile(kOrientationFile, view()->orientation);
}

// Alignment trackers: tracker 3 from a rigid body file, tracker 0 from a
// point set file.
namespace {

void ReplaceFromFile(CalibMainWindow& window, const QString& caption, const QString& filter,
                     uint32_t type, int32_t id) {
  const QString file = QFileDialog::getOpenFileName(&window, caption, QString(), filter);
  if (file.isEmpty()) return;
  window.calib().replaceTracker(std::make_unique<Tracker>(type, id, file.toStdString()));
  window.updateControls();
}

}  // namespace

void CalibMainWindow::sl_NewRigid() {
  ReplaceFromFile(*this, QStringLiteral("Alignment Rigid"), QStringLiteral("Rigid bodies (*.rb)"),
                  ZOR_RIGID_TRACKER, kPointTrackerId);
}

void CalibMainWindow::sl_NewPoint() {
  ReplaceFromFile(*this, QStringLiteral("Point Tracker"), QStringLiteral("Point sets (*.pt)"),
                  ZOR_POINT_TRACKER, kRigidTrackerId);
}

// Orientation mode: the dock that defines the alignment body. Its defaults
// come from ".default.sav" now and go back there when the window closes.
void CalibMainWindow::createOrientationBar() {
  orientationBar_ = new OrientationBar(this, &calib());
  orientationBar_->toggleViewAction()->setVisible(false);  // not in the dock menu
  addDockWidget(Qt::RightDockWidgetArea, orientationBar_);
  connect(orientationBar_, &OrientationBar::sg_CreateRB, this, &CalibMainWindow::sl_CreateRB);
  connect(orientationBar_, &OrientationBar::sg_EnableRB, this, &CalibMainWindow::sl_EnableRB);
  orientationBar_->onOrientation = [this] {
    std::copy(orientationBar_->orientation().begin(), orientationBar_->orientation().end(),
              view()->orientation.begin());
    view()->update();
  };
  orientationBar_->loadDefaults(OrientationBar::defaultsFileName());
}

// The bar's markers become the alignment body, tracker 3 (positions in mm).
void CalibMainWindow::sl_CreateRB() {
  if (!orientationBar_) return;
  std::vector<TrackerMarker> markers;
  for (const AlignBodyMarker& m : orientationBar_->markers()) {
    TrackerMarker marker;
    marker.index = static_cast<int32_t>(markers.size());
    marker.ledId = static_cast<int32_t>(m.number);
    marker.position = {m.x, m.y, m.z};
    markers.push_back(marker);
  }
  if (markers.empty()) return;
  calib().replaceTracker(std::make_unique<Tracker>(ZOR_RIGID_TRACKER, kPointTrackerId, markers, 1.0f));
  updateControls();
}

// The jitter test needs the body's markers reported.
void CalibMainWindow::sl_EnableRB() {
  Tracker* body = calib().FindTracker(kPointTrackerId);
  if (!body || body->markers.empty()) {
    sl_CreateRB();
    body = calib().FindTracker(kPointTrackerId);
  }
  if (!body) return;
  body->enabled = true;
  if (calib().connected()) body->Update(true);
}
