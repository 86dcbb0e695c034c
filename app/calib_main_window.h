// CalibMainWindow: the program's one top-level window. On top of the viewer
// window it has the menus, the "Calibration" and "Drawing" tool bars, the
// "Status" dock, the window-wide keys, the 2 ms frame pump and the slots the
// menus and buttons call. Menu entries carry numeric ids by which the rest of
// the program checks, enables and disables them.
#pragma once

#include <QElapsedTimer>
#include <QKeySequence>
#include <QPointer>
#include <QTimer>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "app/calib_options.h"
#include "app/zor_view_window.h"
#include "calib/calib_session.h"

class QAction;
class QComboBox;
class QDockWidget;
class QLabel;
class QMenu;
class QOpenGLWidget;
class CalibWizard;
class CalibrationFeedback;
class OrientationBar;
class PreCalib;
class PreferenceDialog;
class QToolBar;
class StatusPanel;
class TrackerBar;
class WizardHost;
struct ViewSettings;

class CalibMainWindow : public ZorViewWindow {
  Q_OBJECT

 public:
  // Fixed tracker ids of the calibration.
  static constexpr int32_t kRigidTrackerId = CalibSession::kRigidTrackerId;
  static constexpr int32_t kWandTrackerId = CalibSession::kWandTrackerId;
  static constexpr int32_t kPointTrackerId = CalibSession::kPointTrackerId;
  static constexpr int kPumpIntervalMs = 2;

  // Menu entry ids.
  enum EntryId {
    kBrushNone = 0, kBrushPoints = 1, kBrushLines = 2,
    kColorSlots = 3, kColorUser = 4,
    kCameras = 5, kCameraCones = 6, kCameraStands = 7,
    kAlignRigid = 8, kAlignObject = 9, kAlignWand = 10,
    kExit = 11, kResetView = 12, kFullScreen = 13, kView2d = 14,
    kMarkerIds = 17, kFollow = 21,
    kConnect = 23, kPause = 24, kCapture = 25, kResetCapture = 26, kCalibrate = 27,
    kResetCalibration = 28, kNewRigid = 30, kNewCalib = 31, kSave = 33,
    kExportCalibration = 34,
  };

  CalibMainWindow(QWidget* parent, const char* name, const CalibOptions& options);
  ~CalibMainWindow() override;

  QOpenGLWidget* glView() const;
  bool autoConnectEnabled() const { return autoConnect_; }
  bool autoCapture() const { return autoCapture_; }
  int captureRequest() const { return captureRequest_; }
  bool orientationMode() const { return orientationMode_; }
  int alignKind() const { return calib().alignKind; }
  int fullScreenState() const { return fullScreen_; }
  bool paused() const { return paused_; }
  bool aiming() const { return aiming_; }
  int calibMode() const { return calibMode_; }

  // The menu entry with that id (null when there is none).
  QAction* entry(int id) const;
  void setEntryChecked(int id, bool on);
  void setEntryEnabled(int id, bool on);

  QToolBar* calibrationBar() const { return calibrationBar_; }
  QToolBar* drawingBar() const { return drawingBar_; }
  QDockWidget* statusDock() const;
  StatusPanel* statusPanel() const { return statusPanel_; }
  CalibrationFeedback* feedback() const { return feedback_; }
  // The "Trackers" dock.
  TrackerBar* trackerBar() const { return trackerBar_; }
  QMenu* brushMenu() const { return brushMenu_; }
  // The preferences of the view, once opened (null before).
  PreferenceDialog* preferences() const;
  QComboBox* qualityBox() const { return qualityBox_; }
  // "Capturing  > >" and the like while the calibration is busy.
  QLabel* progressLabel() const { return progressLabel_; }
  // The session, which is the calibration engine.
  CalibSession& calib() { return static_cast<CalibSession&>(session()); }
  const CalibSession& calib() const { return static_cast<const CalibSession&>(session()); }

  // Kind 2: markers picked in the view name the alignment's three points.
  bool markerSelection() const { return markerSelection_; }
  // The "Select Mode" dialog and the wizard in its "Calib" dock.
  PreCalib* preCalib() const { return preCalib_; }
  CalibWizard* wizard() const { return wizard_; }
  QDockWidget* wizardDock() const { return wizardDock_; }
  bool wizardShown() const;

  // The alignment body's dock, in orientation mode only (null otherwise).
  OrientationBar* orientationBar() const { return orientationBar_; }
  // Asks for the tracker file of an alignment object (tracker id given);
  // empty when cancelled. Replaceable so that nothing blocks in tests.
  std::function<QString(int trackerId)> chooseTrackerFile;
  // Asks where to export the calibration (empty when cancelled); replaceable
  // like chooseTrackerFile.
  std::function<QString()> chooseExportFile;

  // The dock menu, without the tool bars and the status panel.
  QMenu* createPopupMenu() override;

  bool connectServer(bool startStreaming, bool setFrequency) override;
  void disconnectServer() override;
  void updateControls() override;
  void reportConnectError(int code) override;

  // The view settings file (.calibst): read while the window is built,
  // written when it goes.
  void loadViewSettings();
  void saveViewSettings();
  ViewSettings currentViewSettings() const;

 signals:
  void sg_AimingState(bool on);
  void sg_CalibState(int pass, float error);

 public slots:
  void sl_PreCalib(int mode);
  void sl_Quit();
  void sl_ExportCalibration();
  void sl_Connect();
  void sl_Pause();
  void sl_Fill();
  void sl_BrNone();
  void sl_BrPoints();
  void sl_BrLines();
  void sl_Fade();
  void sl_Follow();
  void sl_BrushEdit();
  void sl_ShowDistance();
  void sl_Clear();
  void sl_Scale();
  void sl_Ids();
  void sl_Filter();
  void sl_Slots();
  void sl_Shadows();
  void sl_Cameras();
  void sl_CamCones();
  void sl_CamStands();
  void sl_Reset();
  void sl_FullScreen();
  void sl_SelectFocus();
  void sl_ColorDialog();
  void sl_Select_1();
  void sl_Select_2();
  void sl_Select_3();
  void sl_Select_4();
  void sl_Select_5();
  void sl_Select_6();
  void sl_Select_7();
  void sl_Select_8();
  void sl_Select_9();
  void sl_ClearSelections();
  void sl_LineUp(QDockWidget* dock);
  void sl_ZorTimerEvent();
  void sl_ToggleFreq();
  void sl_View2d();
  void sl_Capture();
  void sl_ResetCapture();
  void sl_Calibrate();
  void sl_ResetCalibrate();
  void sl_SaveCalibration();
  void sl_Align();
  void sl_Flip();
  void sl_Align1();
  void sl_Align2();
  void sl_Align3();
  void sl_CapturePos();
  void sl_CalibMode(int mode);
  void sl_CreateRB();
  void sl_EnableRB();
  void sl_NewRigid();
  void sl_NewCalib();
  void sl_NewPoint();
  void sl_ToggleAiming();
  void sl_EnableAiming(bool on);

 protected:
  // One frame from the session: the calibration's per-frame work.
  virtual void processFrame();
  void showEvent(QShowEvent* event) override;

 private:
  // Construction steps, in the order the constructor runs them.
  void createActions();
  void createMenus();
  void addFileEntries();  // after Exit: export (calib_main_window_export.cpp)
  void createToolBars();
  void createStatusDock();
  // The right-hand docks' heights when the window first shows them.
  void shareRightDocks();
  void createFeedback();
  void createTrackerBar();
  void createAccelerators();
  void createPumpTimer();
  void createProgressLabel();
  void createWizard();
  void connectView();
  void applyOptions(const CalibOptions& options);

  template <typename Slot>
  QAction* makeEntry(const QString& text, int id, bool checkable, const QKeySequence& key,
                     Slot slot);
  void selectNumber(int number);
  // Check marks of the drawing entries from the view's switches.
  void showDrawingSwitches();
  // Alignment (calib_main_window_align.cpp).
  void setAlignKind(int kind);
  void showAlignKind();
  void connectAlignment();
  bool loadAlignObject(int32_t trackerId);
  void processAlignment();
  void pickAlignmentMarkers();
  void showAlignmentPoints();
  void alignmentSaved();
  void createOrientationBar();
  // The wizard's modes hide what a guided operator does not need; closing
  // the wizard shows it again.
  void hideForWizard();
  void closeWizard();
  void showCalibStatus(const QString& text);
  // Calibration steps the slots and the frame pump share.
  void startOrStopCapture();
  void showCalibResult();
  void updateProgress();
  void updateCalibControls(bool connected);

  std::map<int, QAction*> entries_;
  // Menu entries (their ids in EntryId).
  QAction* exitAction_ = nullptr;
  QAction* resetViewAction_ = nullptr;
  QAction* fullScreenAction_ = nullptr;
  QAction* view2dAction_ = nullptr;
  QAction* markerIdsAction_ = nullptr;
  QAction* followAction_ = nullptr;
  QAction* slotsAction_ = nullptr;
  QAction* userColorsAction_ = nullptr;
  QAction* camerasAction_ = nullptr;
  QAction* conesAction_ = nullptr;
  QAction* standsAction_ = nullptr;
  QAction* connectAction_ = nullptr;
  QAction* pauseAction_ = nullptr;
  QAction* captureAction_ = nullptr;
  QAction* resetCaptureAction_ = nullptr;
  QAction* calibrateAction_ = nullptr;
  QAction* resetCalibrationAction_ = nullptr;
  QAction* newRigidAction_ = nullptr;
  QAction* newCalibAction_ = nullptr;
  QAction* alignRigidAction_ = nullptr;
  QAction* alignObjectAction_ = nullptr;
  QAction* alignWandAction_ = nullptr;
  QAction* saveAction_ = nullptr;
  QAction* brushNoneAction_ = nullptr;
  QAction* brushPointsAction_ = nullptr;
  QAction* brushLinesAction_ = nullptr;
  // Tool bar buttons that have no menu entry.
  QAction* quitButton_ = nullptr;
  QAction* snapshotButton_ = nullptr;
  QAction* clearButton_ = nullptr;
  QAction* flipButton_ = nullptr;
  QAction* alignButton_ = nullptr;

  QMenu* fileMenu_ = nullptr;
  QMenu* viewMenu_ = nullptr;
  QMenu* drawingMenu_ = nullptr;
  QMenu* colorsMenu_ = nullptr;
  QMenu* camerasMenu_ = nullptr;
  QMenu* zorMenu_ = nullptr;
  QMenu* trackersMenu_ = nullptr;
  QMenu* alignMenu_ = nullptr;
  QMenu* brushMenu_ = nullptr;

  QToolBar* calibrationBar_ = nullptr;
  QToolBar* drawingBar_ = nullptr;
  QComboBox* alignKindBox_ = nullptr;
  QComboBox* calibModeBox_ = nullptr;
  QComboBox* qualityBox_ = nullptr;
  StatusPanel* statusPanel_ = nullptr;
  CalibrationFeedback* feedback_ = nullptr;
  TrackerBar* trackerBar_ = nullptr;
  QLabel* progressLabel_ = nullptr;
  QPointer<PreferenceDialog> preferences_;
  QElapsedTimer clock_;  // the progress arrows' time base

  QTimer pumpTimer_;
  bool paused_ = false;
  bool autoConnect_ = false;
  bool autoCapture_ = false;
  int captureRequest_ = 0;
  bool orientationMode_ = false;
  bool markerSelection_ = false;
  OrientationBar* orientationBar_ = nullptr;
  PreCalib* preCalib_ = nullptr;
  QDockWidget* wizardDock_ = nullptr;
  CalibWizard* wizard_ = nullptr;
  std::unique_ptr<WizardHost> wizardHost_;
  std::vector<QPointer<QWidget>> hiddenByWizard_;
  int fullScreen_ = 0;  // 0 normal, 1 full screen, -1 go full screen once the mode is chosen
  bool menuBarWanted_ = true;  // the menu bar's state outside full screen
  bool aiming_ = false;
  int calibMode_ = 0;  // 0 calibration, 1 alignment
  bool liningUp_ = false;
  bool docksShared_ = false;  // the right-hand docks have had their opening heights
};
