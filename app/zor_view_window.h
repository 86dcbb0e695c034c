// ZorViewWindow: the general viewer window that the family's clients share.
// It owns the server session, the central view, the "Settings" dock, the
// status bar fields and the redraw timer, and it connects, disconnects and
// reports the server library's errors.
#pragma once

#include <QElapsedTimer>
#include <QMainWindow>
#include <QTimer>
#include <memory>

#include "link/config_toolbar.h"
#include "link/zortk.h"

class GLView;
class QLabel;

class ZorViewWindow : public QMainWindow {
  Q_OBJECT

 public:
  static constexpr int kStatusMessageMs = 5000;

  // The window takes the session it works with (a derived session for the
  // calibration client).
  ZorViewWindow(QWidget* parent, const char* name, std::unique_ptr<ZOR> session, float fps,
                const ConfigToolbar::Options& settingsOptions = ConfigToolbar::Options());
  ~ZorViewWindow() override;

  ZOR& session() { return *session_; }
  const ZOR& session() const { return *session_; }
  // The 3D view in the centre, drawing the session.
  GLView* view() const { return view_; }
  ConfigToolbar* settingsDock() const { return settingsDock_; }
  const ConnectionSettings& settings() const { return settingsDock_->settings(); }
  int redrawInterval() const { return redrawTimer_.interval(); }
  int lastRPDError() const { return lastRPDError_; }

  // The error code the pump saw last: a line on standard output and, for the
  // codes the library names, a text in the status bar.
  void handleError(int code);
  // Tells the operator why a connected session ended (the session's last error).
  void reportLostLink(int code);
  void reportRPDError(int code);

 public slots:
  virtual void applySettings();
  virtual bool connectServer(bool startStreaming, bool setFrequency);
  virtual void disconnectServer();
  virtual void autoConnect();
  virtual void updateControls();
  virtual void updateStatus();
  virtual void updateStatistics();
  virtual void reportInitError(int code);
  virtual void reportConnectError(int code);

 protected:
  // The text of the internal-error box for a code; empty when there is none.
  QString initErrorText(int code) const;
  // The drawing rate and load the view measures (0 until a view reports).
  void setGraphicRates(double framesPerSecond, double load);

 private slots:
  void sl_Redraw();

 private:
  GLView* createCentralView();
  void createSettingsDock(const ConfigToolbar::Options& options);
  void createStatusBar();
  void startRedrawTimer(float fps);
  QLabel* addStatusField(int width, const char* toolTip);
  double measureServerRate();

  std::unique_ptr<ZOR> session_;
  GLView* view_ = nullptr;
  ConfigToolbar* settingsDock_ = nullptr;
  QTimer redrawTimer_;
  int lastRPDError_ = 0;

  QLabel* camerasField_ = nullptr;
  QLabel* markersField_ = nullptr;
  QLabel* frameField_ = nullptr;
  QLabel* serverRateField_ = nullptr;
  QLabel* graphicRateField_ = nullptr;
  QLabel* graphicLoadField_ = nullptr;
  double graphicRate_ = 0;
  double graphicLoad_ = 0;

  // Server rate: frames delivered over the last second or so.
  QElapsedTimer rateClock_;
  int32_t rateFirstFrame_ = -1;
  double serverRate_ = 0;
};
