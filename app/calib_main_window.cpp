#include "app/calib_main_window.h"

#include <QStatusBar>
#include <algorithm>
#include <cstdio>

namespace {

constexpr int kPumpIntervalMs = 2;
constexpr int kStatusMessageMs = 5000;
const char* const kDefaultServer = "localhost";

}  // namespace

CalibMainWindow::CalibMainWindow(QWidget* parent, const char* name, const CalibOptions& options)
    : QMainWindow(parent) {
  setObjectName(QString::fromUtf8(name));
  setWindowTitle(QStringLiteral("Corvane System Calibration"));
  resize(800, 600);
  settings_.server = kDefaultServer;

  markersLabel_ = new QLabel(this);
  markersLabel_->setFixedWidth(65);
  markersLabel_->setToolTip(QStringLiteral("average markers seen"));
  frameLabel_ = new QLabel(this);
  frameLabel_->setFixedWidth(65);
  frameLabel_->setToolTip(QStringLiteral("Zor frame number"));
  statusBar()->addPermanentWidget(markersLabel_);
  statusBar()->addPermanentWidget(frameLabel_);

  connect(&pumpTimer_, &QTimer::timeout, this, &CalibMainWindow::sl_ZorTimerEvent);
  pumpTimer_.start(kPumpIntervalMs);
  // Repaints the 3D view once it exists; the interval is kept already.
  redrawTimer_.start(RedrawInterval(options.fps));

  applyOptions(options);
  autoConnect_ = options.connect != 0;
  sl_PreCalib(options.startMode);
  alignKind_ = options.alignKind;
  if (options.full) fullScreen_ = -1;
  if (autoConnect_) QTimer::singleShot(0, this, [this] { connectServer(true, true); });
  updateStatus();
}

CalibMainWindow::~CalibMainWindow() {
  if (session_.connected()) session_.Done();
}

void CalibMainWindow::applyOptions(const CalibOptions& options) {
  if (options.width > 0 && options.height > 0) resize(options.width, options.height);
  if (!options.wandFiles.empty()) {
    std::printf("adding wand tracker: %s\n", options.wandFiles.front().c_str());
    replaceTracker(std::make_unique<Tracker>(ZOR_RIGID_TRACKER, kWandTrackerId,
                                             options.wandFiles.front()));
    std::for_each(options.wandFiles.begin() + 1, options.wandFiles.end(),
                  [this](const std::string& file) { mergeWandFile(file); });
  }
  if (!options.trackerFiles.empty())
    replaceTracker(std::make_unique<Tracker>(ZOR_RIGID_TRACKER, kWandTrackerId,
                                             options.trackerFiles.front()));
  // The calibration's tracker 0 follows the rigid file's LEDs as points and
  // tracker 3 holds the alignment object as a rigid body.
  if (!options.rigidFile.empty())
    replaceTracker(std::make_unique<Tracker>(ZOR_POINT_TRACKER, kRigidTrackerId, options.rigidFile));
  if (!options.pointFile.empty())
    replaceTracker(std::make_unique<Tracker>(ZOR_RIGID_TRACKER, kPointTrackerId, options.pointFile));
  if (options.autoCapture) autoCapture_ = true;
  if (!options.server.empty()) settings_.server = options.server;
  if (options.capture) captureRequest_ = 1;
  orientationMode_ = options.orientation != 0;
}

void CalibMainWindow::replaceTracker(std::unique_ptr<Tracker> tracker) {
  if (session_.FindTracker(tracker->id)) session_.RemoveTracker(tracker->id);
  session_.AddTracker(std::move(tracker));
}

// A further wand file adds its markers to the wand, numbered after the ones
// already there so that the two files' markers stay apart.
void CalibMainWindow::mergeWandFile(const std::string& fileName) {
  Tracker* wand = session_.FindTracker(kWandTrackerId);
  if (!wand) return;
  const size_t before = wand->markers.size();
  wand->Read(wand->type, fileName);
  for (size_t i = before; i < wand->markers.size(); ++i)
    wand->markers[i].index += static_cast<int32_t>(before);
  std::printf("%s added to existing wand tracker\n", fileName.c_str());
}

void CalibMainWindow::sl_PreCalib(int /*mode*/) {
  show();
  if (fullScreen_ == -1) {
    fullScreen_ = 1;
    showFullScreen();
  }
}

bool CalibMainWindow::connectServer(bool startStreaming, bool setFrequency) {
  statusBar()->showMessage(QStringLiteral("connecting..."));
  const int32_t result = session_.Init(settings_, startStreaming, setFrequency);
  if (session_.connected()) {
    statusBar()->showMessage(QStringLiteral("connected"), kStatusMessageMs);
    return true;
  }
  std::printf("%s\n", ZOR::ErrorText(result, kErrorInitConsole, settings_.server).c_str());
  statusBar()->showMessage(QStringLiteral("disconnected"), kStatusMessageMs);
  return false;
}

void CalibMainWindow::disconnectServer() {
  session_.Done();
  statusBar()->showMessage(QStringLiteral("disconnected"));
}

void CalibMainWindow::sl_Connect() {
  if (!session_.connected()) {
    connectServer(true, true);
  } else {
    disconnectServer();
  }
}

void CalibMainWindow::sl_ZorTimerEvent() {
  if (session_.connected()) {
    const ZOR::PumpResult pumped = session_.Pump(ZOR::kPollsPerTick);
    if (pumped.last == -1) disconnectServer();
  }
  updateStatus();
}

void CalibMainWindow::updateStatus() {
  const auto seen = std::count_if(session_.markers.begin(), session_.markers.end(),
                                  [](const ZORMarker& m) { return m.cond > 0; });
  markersLabel_->setText(QStringLiteral("Markers: %1").arg(seen));
  frameLabel_->setText(QString::number(session_.lastFrame));
}
