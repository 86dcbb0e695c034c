// The window's side of the 3D view: the Drawing menu, the brush popup and the
// selection keys call the view, the check marks follow the view's switches,
// and the preferences and the user's marker colours open from here.
#include <QColorDialog>
#include <QStatusBar>

#include "app/calib_main_window.h"
#include "view/gl_view.h"
#include "view/preference_dialog.h"

QOpenGLWidget* CalibMainWindow::glView() const { return view(); }
PreferenceDialog* CalibMainWindow::preferences() const { return preferences_; }

void CalibMainWindow::connectView() {
  // The view's own keys flip switches too; the menus follow either way.
  connect(view(), &GLView::sg_SwitchesChanged, this, &CalibMainWindow::showDrawingSwitches);
  showDrawingSwitches();
}

void CalibMainWindow::showDrawingSwitches() {
  const GLView& v = *view();
  setEntryChecked(kMarkerIds, v.draw.markerIds);
  setEntryChecked(kFollow, v.draw.follow);
  setEntryChecked(kColorSlots, v.draw.bySlot);
  setEntryChecked(kCameras, v.draw.cameras);
  setEntryChecked(kCameraCones, v.draw.cones);
  setEntryChecked(kCameraStands, v.draw.stands);
  setEntryChecked(kView2d, v.view2d());
  const int brush = v.markerStore().brush();
  setEntryChecked(kBrushNone, brush == kBrushNone);
  setEntryChecked(kBrushPoints, brush == kBrushPoints);
  setEntryChecked(kBrushLines, brush == kBrushLines);
}

// Drawing switches: each view slot toggles, repaints and reports back.
void CalibMainWindow::sl_Fill() { view()->sl_Fill(); }
void CalibMainWindow::sl_Scale() { view()->sl_Scale(); }
void CalibMainWindow::sl_Ids() { view()->sl_Ids(); }
void CalibMainWindow::sl_Slots() { view()->sl_Slots(); }
void CalibMainWindow::sl_Shadows() { view()->sl_Shadows(); }
void CalibMainWindow::sl_Cameras() { view()->sl_Cameras(); }
void CalibMainWindow::sl_CamCones() { view()->sl_CamCones(); }
void CalibMainWindow::sl_CamStands() { view()->sl_CamStands(); }
void CalibMainWindow::sl_Reset() { view()->sl_Reset(); }
void CalibMainWindow::sl_View2d() { view()->sl_View2d(); }
void CalibMainWindow::sl_Fade() { view()->sl_Fade(); }
void CalibMainWindow::sl_Filter() { view()->sl_Filter(); }
void CalibMainWindow::sl_Follow() { view()->sl_Follow(); }
void CalibMainWindow::sl_ShowDistance() { view()->sl_ShowDistance(); }

// The brushes are radio-like: the view does not report them, so the marks
// are set here.
void CalibMainWindow::sl_BrNone() { view()->sl_BrNone(), showDrawingSwitches(); }
void CalibMainWindow::sl_BrPoints() { view()->sl_BrPoints(), showDrawingSwitches(); }
void CalibMainWindow::sl_BrLines() { view()->sl_BrLines(), showDrawingSwitches(); }

// One dialog for the window's life, modeless so that the read-outs keep
// moving while it is open; it starts from the view's settings each time.
void CalibMainWindow::sl_BrushEdit() {
  if (!preferences_) preferences_ = new PreferenceDialog(this, view());
  else preferences_->setView(view());
  preferences_->show();
  preferences_->raise();
  preferences_->activateWindow();
}

// The selected markers' slots get a colour of the user's choosing, and the
// markers are coloured by slot so that the choice shows.
void CalibMainWindow::sl_ColorDialog() {
  const std::vector<int> markers = view()->selection().AllMarkers();
  if (markers.empty()) {
    statusBar()->showMessage(QStringLiteral("Select the markers to colour first"),
                             kStatusMessageMs);
    return;
  }
  const QColor chosen = QColorDialog::getColor(Qt::white, this, QStringLiteral("Marker Colour"));
  if (!chosen.isValid()) return;
  Colour colour;
  colour.set(float(chosen.redF()), float(chosen.greenF()), float(chosen.blueF()), 1);
  for (int slot : markers) view()->SetSlotColour(slot, colour);
  if (view()->draw.bySlot)
    view()->update();
  else
    view()->sl_Slots();
}

// Selection.
void CalibMainWindow::sl_SelectFocus() { view()->sl_SelectFocus(); }

// An empty set stores the selection, a stored one brings it back.
void CalibMainWindow::selectNumber(int number) {
  const int done = view()->UseSelectionSet(number);
  if (done == 1)
    statusBar()->showMessage(QStringLiteral("Selection %1 stored").arg(number), kStatusMessageMs);
  else if (done == 2)
    statusBar()->showMessage(QStringLiteral("Selection %1 recalled").arg(number), kStatusMessageMs);
  view()->update();
}

void CalibMainWindow::sl_Select_1() { selectNumber(1); }
void CalibMainWindow::sl_Select_2() { selectNumber(2); }
void CalibMainWindow::sl_Select_3() { selectNumber(3); }
void CalibMainWindow::sl_Select_4() { selectNumber(4); }
void CalibMainWindow::sl_Select_5() { selectNumber(5); }
void CalibMainWindow::sl_Select_6() { selectNumber(6); }
void CalibMainWindow::sl_Select_7() { selectNumber(7); }
void CalibMainWindow::sl_Select_8() { selectNumber(8); }
void CalibMainWindow::sl_Select_9() { selectNumber(9); }

void CalibMainWindow::sl_ClearSelections() {
  view()->sl_ClearSelections();
  view()->update();
}
