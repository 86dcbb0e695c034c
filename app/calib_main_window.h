// CalibMainWindow: the program's one top-level window. For now it owns the
// server session, applies the start-up options that concern trackers and the
// session, runs the frame pump and shows the frame number and marker count
// in its status bar; menus, docks and the 3D view come with later work.
#pragma once

#include <QLabel>
#include <QMainWindow>
#include <QTimer>
#include <memory>
#include <string>

#include "app/calib_options.h"
#include "link/connection_settings.h"
#include "link/zortk.h"

class QOpenGLWidget;

class CalibMainWindow : public QMainWindow {
  Q_OBJECT

 public:
  // Fixed tracker ids of the calibration.
  static constexpr int32_t kRigidTrackerId = 0;
  static constexpr int32_t kWandTrackerId = 2;
  static constexpr int32_t kPointTrackerId = 3;

  CalibMainWindow(QWidget* parent, const char* name, const CalibOptions& options);
  ~CalibMainWindow() override;

  ZOR& session() { return session_; }
  const ConnectionSettings& settings() const { return settings_; }
  QOpenGLWidget* glView() const { return nullptr; }  // no 3D view yet
  int redrawInterval() const { return redrawTimer_.interval(); }
  bool autoConnect() const { return autoConnect_; }
  bool autoCapture() const { return autoCapture_; }
  int captureRequest() const { return captureRequest_; }
  bool orientationMode() const { return orientationMode_; }
  int alignKind() const { return alignKind_; }

  // Connects with the current settings; true when the session runs.
  bool connectServer(bool startStreaming, bool setFrequency);
  void disconnectServer();

 public slots:
  void sl_PreCalib(int mode);
  void sl_Connect();
  void sl_ZorTimerEvent();

 private:
  void applyOptions(const CalibOptions& options);
  void replaceTracker(std::unique_ptr<Tracker> tracker);
  void mergeWandFile(const std::string& fileName);
  void updateStatus();

  ZOR session_{128, 0.001f};
  ConnectionSettings settings_;
  QTimer pumpTimer_;
  QTimer redrawTimer_;
  QLabel* markersLabel_;
  QLabel* frameLabel_;
  bool autoConnect_ = false;
  bool autoCapture_ = false;
  int captureRequest_ = 0;
  bool orientationMode_ = false;
  int alignKind_ = 0;
  int fullScreen_ = 0;  // 0 normal, 1 full screen, -1 go full screen once the mode is chosen
};
