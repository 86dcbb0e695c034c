#include "app/zor_view_window.h"

#include <QLabel>
#include <QStatusBar>
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "app/client_options.h"
#include "app/message_box.h"
#include "link/event_loop_wait.h"
#include "view/gl_view.h"

namespace {

constexpr qint64 kRateWindowMs = 1000;
const char* const kInitErrorCaption = "Zor Init Error";

}  // namespace

ZorViewWindow::ZorViewWindow(QWidget* parent, const char* name, std::unique_ptr<ZOR> session,
                             float fps, const ConfigToolbar::Options& settingsOptions)
    : QMainWindow(parent), session_(std::move(session)) {
  setObjectName(QString::fromUtf8(name));
  view_ = createCentralView();
  createSettingsDock(settingsOptions);
  createStatusBar();
  startRedrawTimer(fps);
  KeepEventLoopWhileWaiting(true);
}

ZorViewWindow::~ZorViewWindow() {
  KeepEventLoopWhileWaiting(false);
  if (session_->connected()) session_->Done();
}

// The view reads the session's frame while it paints; the window keeps it
// fed (frames, redraws) from its timers.
GLView* ZorViewWindow::createCentralView() {
  auto* view = new GLView(this);
  view->setObjectName(QStringLiteral("view"));
  view->setMinimumSize(200, 150);
  view->SetSession(session_.get());
  AllowInputWhileWaiting(view);  // turning and zooming the view starts nothing
  setCentralWidget(view);
  return view;
}

void ZorViewWindow::createSettingsDock(const ConfigToolbar::Options& options) {
  settingsDock_ = new ConfigToolbar(this, options);
  addDockWidget(Qt::RightDockWidgetArea, settingsDock_);
}

QLabel* ZorViewWindow::addStatusField(int width, const char* toolTip) {
  auto* field = new QLabel(this);
  field->setFixedWidth(width);
  field->setToolTip(QString::fromLatin1(toolTip));
  statusBar()->addPermanentWidget(field);
  return field;
}

void ZorViewWindow::createStatusBar() {
  camerasField_ = addStatusField(65, "total cameras");
  markersField_ = addStatusField(65, "average markers seen");
  frameField_ = addStatusField(65, "Zor frame number");
  serverRateField_ = addStatusField(45, "Zor frames/sec.");
  graphicRateField_ = addStatusField(45, "graphic frames/sec.");
  graphicLoadField_ = addStatusField(45, "graphic Load");
}

void ZorViewWindow::startRedrawTimer(float fps) {
  connect(&redrawTimer_, &QTimer::timeout, this, &ZorViewWindow::sl_Redraw);
  redrawTimer_.start(RedrawInterval(fps));
}

void ZorViewWindow::sl_Redraw() {
  view_->update();
  const PaintRates& rates = view_->rates();
  setGraphicRates(rates.lastFrameRate(), std::atof(rates.load().c_str()));
}

void ZorViewWindow::setGraphicRates(double framesPerSecond, double load) {
  graphicRate_ = framesPerSecond;
  graphicLoad_ = load;
}

void ZorViewWindow::applySettings() { settingsDock_->GetSettings(); }

bool ZorViewWindow::connectServer(bool startStreaming, bool setFrequency) {
  statusBar()->showMessage(QStringLiteral("connecting..."));
  const int32_t result = session_->Init(settings(), startStreaming, setFrequency);
  view_->update();
  if (session_->connected()) {
    // Trails and filters of an earlier connection mean nothing now.
    view_->markerStore().Reset(session_->frequency);
    statusBar()->showMessage(QStringLiteral("connected"), kStatusMessageMs);
    return true;
  }
  std::printf("%s\n", ZOR::ErrorText(result, kErrorInitConsole, settings().server).c_str());
  zorGetStatus();
  int error = zorGetError();
  // A connect that failed before reaching a server queues no error of its
  // own; its result is the reason to show (refused, unreachable, ...).
  if (error == 0 && result < -1) error = result;
  if (error != 0) reportConnectError(error);
  statusBar()->showMessage(QStringLiteral("disconnected"), kStatusMessageMs);
  return false;
}

void ZorViewWindow::disconnectServer() {
  session_->Done();
  statusBar()->showMessage(QStringLiteral("disconnected"));
}

void ZorViewWindow::autoConnect() {
  if (!view_ || settingsDock_->isHidden() || !settingsDock_->connectRequested()) return;
  settingsDock_->clearConnectRequest();
  applySettings();
  const std::string& server = settings().server;
  if (CheckConnection(server, settingsDock_->scanPort())) {
    connectServer(true, true);
  } else {
    statusBar()->showMessage(
        QStringLiteral("auto connect failed: %1 not found").arg(QString::fromStdString(server)));
  }
  updateControls();
}

void ZorViewWindow::updateControls() {}

void ZorViewWindow::updateStatus() {
  const auto seen = std::count_if(session_->markers.begin(), session_->markers.end(),
                                  [](const ZORMarker& m) { return m.cond > 0; });
  camerasField_->setText(QStringLiteral("Cameras: %1").arg(session_->cameras.size()));
  markersField_->setText(QStringLiteral("Markers: %1").arg(seen));
  graphicRateField_->setText(QStringLiteral("%1 fps").arg(graphicRate_, 0, 'f', 0));
  graphicLoadField_->setText(QString::number(graphicLoad_, 'f', 2));
  serverRateField_->setText(QStringLiteral("%1Hz").arg(measureServerRate(), 0, 'f', 0));
  frameField_->setText(QString::number(session_->lastFrame));
}

// Frames the session delivered per second, over windows of about a second.
double ZorViewWindow::measureServerRate() {
  if (!session_->connected()) {
    rateFirstFrame_ = -1;
    serverRate_ = 0;
    return 0;
  }
  if (rateFirstFrame_ < 0 || session_->lastFrame < rateFirstFrame_) {
    rateFirstFrame_ = session_->lastFrame;
    rateClock_.start();
  } else if (rateClock_.elapsed() >= kRateWindowMs) {
    serverRate_ = (session_->lastFrame - rateFirstFrame_) * 1000.0 / rateClock_.elapsed();
    rateFirstFrame_ = session_->lastFrame;
    rateClock_.restart();
  }
  return serverRate_;
}

// The statistics table belongs to the family's other clients; this one
// shows its figures in the status bar.
void ZorViewWindow::updateStatistics() {}

void ZorViewWindow::handleError(int code) {
  QString text;
  switch (code) {
    case ZOR_INVALID_VALUE:
      text = QStringLiteral("Error: Invalid Value sent to Zor");
      break;
    case ZOR_INVALID_ENUM:
      text = QStringLiteral("Error: Invalid Enum sent to Zor");
      break;
    case ZOR_INVALID_OPERATION:
      text = QStringLiteral("Error: an Invalid Operation occurred");
      break;
  }
  const QByteArray line = text.toUtf8();
  if (code > 1) std::printf("error: ZorHandlerError: %s (0x%x)\n", line.constData(), code);
  if (code < 0) std::printf("error: ZorHandlerError: %s (e=%d)\n", line.constData(), code);
  if (!text.isEmpty()) statusBar()->showMessage(text);
}

void ZorViewWindow::reportLostLink(int code) {
  // The library names the codes it raises itself (a lost or timed-out link);
  // anything else gets the session's general description.
  char known[ZOR_STRING_MAX] = {};
  const std::string why =
      zorGetString(code, known) > 0 ? known : ZOR::ErrorText(code, kErrorGeneral, settings().server);
  std::printf("error: connection to %s ended: %s\n", settings().server.c_str(), why.c_str());
  statusBar()->showMessage(QStringLiteral("disconnected: %1").arg(QString::fromStdString(why)));
}

QString ZorViewWindow::initErrorText(int code) const {
  if (code < 1) return QString::fromStdString(ZOR::ErrorText(code, kErrorInitDialog, settings().server));
  char known[ZOR_STRING_MAX];
  if (zorGetString(code, known) > 0) return {};
  return QStringLiteral(
             "An internal error occurred.\n\nPlease check the server log.\nIf the problem "
             "persists, call customer support with this error code: %1")
      .arg(code);
}

void ZorViewWindow::reportInitError(int code) {
  const QString text = initErrorText(code);
  if (!text.isEmpty()) ShowWarning(this, QString::fromLatin1(kInitErrorCaption), text);
}

void ZorViewWindow::reportConnectError(int code) { reportInitError(code); }

void ZorViewWindow::reportRPDError(int code) {
  QString text;
  switch (code) {
    case -1:
    case -2:
      text = QStringLiteral("Error Initializing RPD: invalid RPD mode.");
      break;
    case -3:
      text = QStringLiteral("Error Initializing RPD: unable to connect to ") +
             QString::fromStdString(settings().server);
      break;
    case -4:
      text = QStringLiteral("Error Initializing RPD: failed to send mode.");
      break;
    default:
      text = QStringLiteral("Error Initializing RPD: check server messages");
  }
  ShowWarning(this, QStringLiteral("RPD Error"), text);
  lastRPDError_ = code;
}
