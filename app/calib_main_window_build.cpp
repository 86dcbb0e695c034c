// The window's actions, menus, tool bars, docks and keys.
#include <QAction>
#include <QComboBox>
#include <QMenu>
#include <QMenuBar>
#include <QShortcut>
#include <QStatusBar>
#include <QToolBar>
#include <QToolButton>
#include <algorithm>

#include "app/calib_main_window.h"
#include "calib/calibration_feedback.h"
#include "calib/status_panel.h"
#include "widgets/embedded_images.h"

// One menu entry: text, id, check mark and key, connected to a slot. The
// window holds the action too, so its key works while the menu bar is hidden
// (full screen, the wizard's modes).
template <typename Slot>
QAction* CalibMainWindow::makeEntry(const QString& text, int id, bool checkable,
                                    const QKeySequence& key, Slot slot) {
  auto* action = new QAction(text, this);
  action->setData(id);
  action->setCheckable(checkable);
  if (!key.isEmpty()) action->setShortcut(key);
  connect(action, &QAction::triggered, this, slot);
  addAction(action);
  entries_[id] = action;
  return action;
}

QAction* CalibMainWindow::entry(int id) const {
  const auto it = entries_.find(id);
  return it == entries_.end() ? nullptr : it->second;
}

void CalibMainWindow::setEntryChecked(int id, bool on) {
  if (QAction* action = entry(id)) action->setChecked(on);
}

void CalibMainWindow::setEntryEnabled(int id, bool on) {
  if (QAction* action = entry(id)) action->setEnabled(on);
}

void CalibMainWindow::createActions() {
  using W = CalibMainWindow;
  const QKeySequence none;
  exitAction_ = makeEntry("Exit", kExit, false, QKeySequence(Qt::CTRL | Qt::Key_Q), &W::sl_Quit);
  resetViewAction_ =
      makeEntry("Reset 3d View", kResetView, false, QKeySequence(Qt::SHIFT | Qt::Key_R), &W::sl_Reset);
  fullScreenAction_ = makeEntry("Fullscreen", kFullScreen, true, QKeySequence(Qt::Key_F11),
                                &W::sl_FullScreen);
  view2dAction_ = makeEntry("2D View", kView2d, true, QKeySequence(Qt::Key_V), &W::sl_View2d);
  markerIdsAction_ =
      makeEntry("Show Marker IDs", kMarkerIds, true, QKeySequence(Qt::Key_N), &W::sl_Ids);
  followAction_ = makeEntry("Follow Selection", kFollow, true, QKeySequence(Qt::SHIFT | Qt::Key_F),
                            &W::sl_Follow);
  slotsAction_ = makeEntry("slots", kColorSlots, true, QKeySequence(Qt::SHIFT | Qt::Key_S), &W::sl_Slots);
  userColorsAction_ = makeEntry("user defined", kColorUser, false,
                                QKeySequence(Qt::SHIFT | Qt::Key_K), &W::sl_ColorDialog);
  camerasAction_ = makeEntry("cameras", kCameras, true, none, &W::sl_Cameras);
  conesAction_ =
      makeEntry("cones", kCameraCones, true, QKeySequence(Qt::SHIFT | Qt::Key_N), &W::sl_CamCones);
  standsAction_ = makeEntry("stands", kCameraStands, true, none, &W::sl_CamStands);
  connectAction_ = makeEntry("Connect", kConnect, true, QKeySequence(Qt::SHIFT | Qt::Key_Return),
                             &W::sl_Connect);
  pauseAction_ = makeEntry("Pause", kPause, true, QKeySequence(Qt::CTRL | Qt::Key_P), &W::sl_Pause);
  captureAction_ = makeEntry("Capture", kCapture, true, none, &W::sl_Capture);
  resetCaptureAction_ = makeEntry("Reset Capture", kResetCapture, false, none, &W::sl_ResetCapture);
  calibrateAction_ = makeEntry("Calibrate", kCalibrate, true, none, &W::sl_Calibrate);
  resetCalibrationAction_ =
      makeEntry("Reset Calibration", kResetCalibration, false, none, &W::sl_ResetCalibrate);
  newRigidAction_ = makeEntry("Alignment Rigid", kNewRigid, false, none, &W::sl_NewRigid);
  newCalibAction_ = makeEntry("Calibration Wand", kNewCalib, false, none, &W::sl_NewCalib);
  alignRigidAction_ = makeEntry("Rigid Body", kAlignRigid, true, none, &W::sl_Align1);
  alignObjectAction_ = makeEntry("Alignment Object", kAlignObject, true, none, &W::sl_Align2);
  alignWandAction_ = makeEntry("Wand", kAlignWand, true, none, &W::sl_Align3);
  saveAction_ = makeEntry("Save", kSave, false, none, &W::sl_SaveCalibration);
  brushNoneAction_ = makeEntry("None", kBrushNone, true, none, &W::sl_BrNone);
  brushPointsAction_ = makeEntry("Points", kBrushPoints, true, none, &W::sl_BrPoints);
  brushLinesAction_ = makeEntry("Lines", kBrushLines, true, none, &W::sl_BrLines);

  // Tool bar buttons of their own.
  quitButton_ = new QAction("Quit", this);
  connect(quitButton_, &QAction::triggered, this, &W::sl_Quit);
  snapshotButton_ = new QAction("Snapshot", this);
  snapshotButton_->setToolTip("Capture a position (Auto capturing disabled until reconnect)");
  connect(snapshotButton_, &QAction::triggered, this, &W::sl_CapturePos);
  clearButton_ = new QAction("Clear", this);
  clearButton_->setToolTip("Clear captured positions");
  connect(clearButton_, &QAction::triggered, this, &W::sl_Clear);
  flipButton_ = new QAction("Flip Up", this);
  flipButton_->setToolTip("Flip the current orientation upside-down");
  connect(flipButton_, &QAction::triggered, this, &W::sl_Flip);
  alignButton_ = new QAction("Align", this);
  alignButton_->setToolTip("Start aligning");
  connect(alignButton_, &QAction::triggered, this, &W::sl_Align);
}

void CalibMainWindow::createMenus() {
  fileMenu_ = menuBar()->addMenu("&File");
  fileMenu_->addAction(exitAction_);
  addFileEntries();

  viewMenu_ = menuBar()->addMenu("View");
  viewMenu_->addActions({resetViewAction_, fullScreenAction_, view2dAction_});

  drawingMenu_ = menuBar()->addMenu("Drawing");
  drawingMenu_->addActions({markerIdsAction_, followAction_});
  colorsMenu_ = drawingMenu_->addMenu("Colors");
  colorsMenu_->addActions({slotsAction_, userColorsAction_});
  drawingMenu_->addSeparator();
  camerasMenu_ = drawingMenu_->addMenu("Cameras");
  camerasMenu_->addActions({camerasAction_, conesAction_, standsAction_});
  drawingMenu_->addSeparator();

  zorMenu_ = menuBar()->addMenu("Zor");
  zorMenu_->addActions({connectAction_, pauseAction_});
  zorMenu_->addSeparator();
  trackersMenu_ = zorMenu_->addMenu("Change Trackers");
  trackersMenu_->addActions({newRigidAction_, newCalibAction_});
  zorMenu_->addSeparator();
  zorMenu_->addActions({captureAction_, resetCaptureAction_, calibrateAction_, resetCalibrationAction_});
  alignMenu_ = zorMenu_->addMenu("Align Mode");
  zorMenu_->addSeparator();
  alignMenu_->addActions({alignRigidAction_, alignObjectAction_, alignWandAction_});
  zorMenu_->addAction(saveAction_);

  // The trail brush popup is not on the menu bar; the view offers it.
  brushMenu_ = new QMenu("Brush", this);
  brushMenu_->addActions({brushNoneAction_, brushPointsAction_, brushLinesAction_});
}

void CalibMainWindow::createToolBars() {
  calibrationBar_ = addToolBar("Calibration");
  calibrationBar_->setObjectName("Calibration");
  calibrationBar_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
  connectAction_->setIcon(LoadPixmap("liveOff.png"));
  connectAction_->setToolTip("Connect to zor server");
  captureAction_->setToolTip("Capture calibration data");
  calibrateAction_->setToolTip("Calibrate the system");
  saveAction_->setToolTip("Save calibration");
  view2dAction_->setToolTip("Toggle 2D view");
  calibrationBar_->addActions(
      {connectAction_, captureAction_, calibrateAction_, saveAction_, quitButton_, view2dAction_});

  alignKindBox_ = new QComboBox(calibrationBar_);
  alignKindBox_->addItems({"Rigid Body", "Alignment Object", "Wand"});
  alignKindBox_->setToolTip("Select the type of object to align with");
  connect(alignKindBox_, &QComboBox::activated, this, [this](int index) { setAlignKind(index + 1); });
  calibrationBar_->addWidget(alignKindBox_);
  calibrationBar_->addActions({snapshotButton_, clearButton_, flipButton_, alignButton_});

  calibModeBox_ = new QComboBox(calibrationBar_);
  calibModeBox_->addItems({"Calibration", "Alignment"});
  calibModeBox_->setToolTip("Select Alignment or Calibration mode");
  connect(calibModeBox_, &QComboBox::activated, this, &CalibMainWindow::sl_CalibMode);
  calibrationBar_->addWidget(calibModeBox_);

  qualityBox_ = new QComboBox(calibrationBar_);
  qualityBox_->addItems({"Faster", "Fast", "Normal", "Slow", "Slower", "Exhaustive"});
  qualityBox_->setCurrentIndex(2);
  qualityBox_->setToolTip("Select calibration quality");
  calibrationBar_->addWidget(qualityBox_);
  calibrationBar_->addSeparator();

  drawingBar_ = addToolBar("Drawing");
  drawingBar_->setObjectName("Drawing");
  auto* camerasButton = new QToolButton(drawingBar_);
  camerasButton->setObjectName("cameras");
  camerasButton->setText("cameras");
  camerasButton->setMenu(camerasMenu_);
  camerasButton->setPopupMode(QToolButton::InstantPopup);
  drawingBar_->addWidget(camerasButton);
  // The trails: a click opens the preferences, the arrow the brush popup.
  auto* brushButton = new QToolButton(drawingBar_);
  brushButton->setObjectName("brush");
  brushButton->setText("brush");
  brushButton->setToolTip("Marker trails (click for the preferences)");
  brushButton->setMenu(brushMenu_);
  brushButton->setPopupMode(QToolButton::MenuButtonPopup);
  connect(brushButton, &QToolButton::clicked, this, &CalibMainWindow::sl_BrushEdit);
  drawingBar_->addWidget(brushButton);
}

void CalibMainWindow::createStatusDock() {
  statusPanel_ = new StatusPanel(this);
  addDockWidget(Qt::RightDockWidgetArea, statusPanel_);
  for (QDockWidget* dock : {static_cast<QDockWidget*>(settingsDock()), statusDock()}) {
    connect(dock, &QDockWidget::dockLocationChanged, this, [this, dock] { sl_LineUp(dock); });
    connect(dock, &QDockWidget::topLevelChanged, this, [this, dock] { sl_LineUp(dock); });
  }
}

QDockWidget* CalibMainWindow::statusDock() const { return statusPanel_; }

// The settings get what their controls need, the status two thirds of the
// rest so that the run's figures under the pass lines show without
// scrolling, the calibration feedback (a capture's coverage table) a third.
// Once, and only while the three stand one above the other on the right, as
// the window opens them: later the operator's own arrangement stands.
void CalibMainWindow::shareRightDocks() {
  docksShared_ = true;
  auto* feedback = findChild<CalibrationFeedbackDock*>();
  const QList<QDockWidget*> docks = {settingsDock(), statusDock(), feedback};
  for (QDockWidget* dock : docks) {
    if (!dock || dock->isHidden() || dock->isFloating() ||
        dockWidgetArea(dock) != Qt::RightDockWidgetArea)
      return;
  }
  const int settings = settingsDock()->sizeHint().height();
  // The side is as tall as the view.
  const int rest = std::max(0, centralWidget()->height() - settings);
  resizeDocks(docks, {settings, rest * 2 / 3, rest / 3}, Qt::Vertical);
}

void CalibMainWindow::showEvent(QShowEvent* event) {
  ZorViewWindow::showEvent(event);
  // The wizard hides the settings and the status; its close shares them.
  if (!docksShared_ && !wizardShown()) shareRightDocks();
}

void CalibMainWindow::createAccelerators() {
  const auto key = [this](const QKeySequence& sequence, auto slot) {
    connect(new QShortcut(sequence, this), &QShortcut::activated, this, slot);
  };
  using W = CalibMainWindow;
  key(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_P), &W::sl_ToggleFreq);
  key(QKeySequence(Qt::Key_D), &W::sl_ShowDistance);
  key(QKeySequence(Qt::Key_Escape), &W::sl_ClearSelections);
  void (W::*const select[])() = {&W::sl_Select_1, &W::sl_Select_2, &W::sl_Select_3,
                                 &W::sl_Select_4, &W::sl_Select_5, &W::sl_Select_6,
                                 &W::sl_Select_7, &W::sl_Select_8, &W::sl_Select_9};
  for (int digit = 1; digit <= 9; ++digit)
    key(QKeySequence(Qt::Key_0 + digit), select[digit - 1]);
  key(QKeySequence(Qt::Key_A), &W::sl_ToggleAiming);
}

// The window's dock menu lists only what the operator may switch on and off.
QMenu* CalibMainWindow::createPopupMenu() {
  QMenu* menu = ZorViewWindow::createPopupMenu();
  if (menu) {
    for (QAction* hidden : {calibrationBar_->toggleViewAction(), drawingBar_->toggleViewAction(),
                            statusPanel_->toggleViewAction(), wizardDock_->toggleViewAction()})
      menu->removeAction(hidden);
    // The calibration feedback stays beside the status, like it.
    if (auto* feedback = findChild<CalibrationFeedbackDock*>())
      menu->removeAction(feedback->toggleViewAction());
  }
  return menu;
}
