#include "calib/calib_session.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "calib/alignment_notice.h"
#include "link/capture_file.h"

namespace {

// p := M p for a rigid transform M (rotation and translation, column-major).
void TransformPoint(const float m[16], float* p) {
  float rotated[3];
  mult_mv3_v3(m, p, rotated);
  for (int i = 0; i < 3; ++i) p[i] = rotated[i] + m[12 + i];
}

// p := a * p for poses (a's rotation and translation).
void ComposePose(const float* a, float* p) {
  float composed[7];
  mult_pp(a, p, composed);
  std::copy(composed, composed + 7, p);
}

}  // namespace

CalibSession::CalibSession(int markerCapacity, float initialScale)
    : ZOR(markerCapacity, initialScale) {
  trackers.reserve(64);
  AddTracker(std::make_unique<Tracker>(ZOR_POINT_TRACKER, kRigidTrackerId, kRigidMarkers));
  AddTracker(std::make_unique<Tracker>(ZOR_CALIB_TRACKER, kCalibTrackerId, 0));
  AddTracker(std::make_unique<Tracker>(ZOR_RIGID_TRACKER, kWandTrackerId, 0));
  AddTracker(std::make_unique<Tracker>(ZOR_RIGID_TRACKER, kPointTrackerId, 0));
}

int32_t CalibSession::open(const ConnectionSettings& settings, bool secondStream,
                           bool applySetting) {
  alignPoints.clear();
  alignWandPoints.clear();
  alignIndices = {0, 1, 2};
  autoSnapshot = alignKind == 3;  // a snapshot by hand stops them until now
  stillness.Reset();

  flags = kCalibFlags;
  ResetFrames();
  const int32_t ret = zorInit(settings.server.c_str(), kCalibFlags);
  if (ret < 0) return ret;
  if (settings.interpolate > 0) zorSetInteger(kSessionSetting, settings.interpolate);

  if (loadExisting == 0) {
    std::printf("loading blank calibration\n");
    zorSetInteger(kLoadExisting, 0);
    zorLoadPose(pose.data());
  } else {
    std::printf("loading existing calibration\n");
    zorSetInteger(kLoadExisting, 1);
    LoadPose(Pose().data());
  }
  zorScale(scale);

  if (trackers.empty())
    AddTracker(std::make_unique<Tracker>(ZOR_POINT_TRACKER, kRigidTrackerId, kRigidMarkers));
  CreateTrackers();
  zorSetInteger(kCalibStream, kOn);

  if (zorGetStatus() == 0) {
    zorDone();  // or the next attempt finds the library still connected
    return -1;
  }
  if (secondStream) zorSetInteger(kSecondStream, kOn);
  if (applySetting) SetFrequency(settings.frequency);
  running = 1;
  NoteAlignment(*this, true);
  return ret;
}

void CalibSession::Done() {
  rawOpen = 0;  // the base closes the recording with the session
  ZOR::Done();
  // The server keeps neither the capture nor a running calibration beyond
  // the session.
  capturing = false;
  captured = false;
  calibrating = false;
  capturedFrames = 0;
  captureStart = 0;
  lastCaptureFrame = 0;
}

void CalibSession::toggleCapture() {
  if (!connected()) return;
  if (capturing) {
    captured = true;
    capturing = false;
    zorTracker(kCalibTrackerId, kCaptureStop);
    lastCaptureFrame = lastFrame;
    capturedFrames += lastCaptureFrame - captureStart;
  } else {
    capturing = true;
    zorTracker(kCalibTrackerId, kCaptureStart);
    captureStart = lastCaptureFrame = lastFrame;
  }
}

void CalibSession::resetCapture() {
  if (!connected()) return;
  capturing = false;
  captured = false;
  lastCaptureFrame = captureStart = capturedFrames = 0;
  zorTracker(kCalibTrackerId, kCaptureReset);
  // A recording of discarded data would replay as part of the next capture.
  closeRaw();
}

void CalibSession::calibrate(int32_t newQuality) {
  if (!connected() || !captured) return;
  closeRaw();
  Flush();
  calibrating = true;
  aligned = false;
  calibrationSaved = false;
  quality = newQuality;
  zorTrackeri(kCalibTrackerId, kCalibrate, quality);
}

int CalibSession::readMessage() {
  messageReady = 0;
  char buffer[kMessageBytes] = {};
  if (zorGetString(kMessage, buffer) <= 0) return 0;
  buffer[kMessageBytes - 1] = '\0';
  std::printf("CalibMessage: %s\n", buffer);
  applyMessage(buffer);
  return 1;
}

void CalibSession::applyMessage(const std::string& message) {
  messageReady = 0;
  const size_t stop = message.find(". ");
  messageDetail = stop == std::string::npos ? std::string() : message.substr(stop + 2);

  int passNumber = 0;
  float error = -1.0f;
  if (std::sscanf(message.c_str(), "pass %d success.", &passNumber) < 1)
    std::sscanf(message.c_str(), "error %f", &error);

  if (passNumber > 0) {
    if (message.find("success") == std::string::npos) {
      pass = -passNumber;
      calibrating = false;
      messageReady = 1;
    } else {
      // Shown only when its error line follows.
      pass = passNumber;
    }
  }
  if (error >= 0.0f) {
    passError = error;
    messageReady = 1;
    if (pass == 4) {  // the last pass: its error line ends the calibration
      calibrating = false;
      calibrated = true;
    }
  }
}

bool CalibSession::resetCalibration() {
  if (!connected() || calibrating || capturing) return false;
  std::printf("loading blank calibration\n");
  zorSetInteger(kLoadExisting, 0);
  calibrated = false;
  calibrationSaved = false;
  pass = 0;
  passError = -1.0f;
  messageDetail.clear();
  return true;
}

bool CalibSession::save() {
  if (!connected() || calibrating || capturing) return false;
  float m[16];
  convert_pm(pose.data(), m);
  float global[7] = {0, 0, 0, 1, 0, 0, 0};
  if (zorGetFloatv(kGlobalTransform, global) != 7) {
    std::printf("error: CalibSession::save(): cannot read the global transform (e=%x)\n",
                zorGetError());
    return false;
  }
  // The server's transform is in its own units.
  Pose sent = pose;
  for (int i = 0; i < 3; ++i) sent[i] /= scale;
  float composed[7];
  mult_pp(sent.data(), global, composed);
  if (zorSetFloatv(kGlobalTransform, composed) != 1 || zorSetInteger(kSave, 1) != 1) {
    std::printf("error: CalibSession::save(): the server did not save (e=%x)\n", zorGetError());
    return false;
  }

  calibrationSaved = true;
  if (aligning) {
    aligned = true;
    aligning = false;
    showAlignObjectOnly(false);
    NoteAlignment(*this);
  }
  // The shown cameras move with the saved transform before the server's next
  // report arrives.
  for (ZORCamera& camera : cameras) {
    if (camera.cond <= 0) continue;
    float moved[3];
    mult_mv3_v3(m, camera.pose, moved);
    std::copy(moved, moved + 3, camera.pose);
  }
  pose.identity();
  std::printf("saved\n");
  anySaved = true;
  return true;
}

void CalibSession::applyPendingAlignment() {
  float m[16];
  convert_pm(pose.data(), m);
  for (ZORMarker& marker : markers) {
    if (marker.cond <= 0) continue;
    float at[3] = {marker.x, marker.y, marker.z};
    TransformPoint(m, at);
    marker.x = at[0];
    marker.y = at[1];
    marker.z = at[2];
  }
  for (ZORRigid& rigid : rigids)
    if (rigid.cond > 0) ComposePose(pose.data(), rigid.pose);
  for (ZORCamera& camera : cameras)
    if (camera.cond > 0) ComposePose(pose.data(), camera.pose);
}

Tracker* CalibSession::replaceTracker(std::unique_ptr<Tracker> tracker) {
  if (FindTracker(tracker->id)) RemoveTracker(tracker->id);
  Tracker* added = AddTracker(std::move(tracker));
  if (connected()) {
    zorScale(1.0f);  // tracker geometry always goes unscaled
    added->Create();
    zorScale(scale);
  }
  return added;
}

bool CalibSession::prepareCalibrationTracker(const std::string& defaultWandFile) {
  const auto withMarkers = [this](int32_t id) {
    return std::any_of(trackers.begin(), trackers.end(), [id](const auto& t) {
      return t->id == id && !t->markers.empty();
    });
  };
  if (withMarkers(kCalibTrackerId)) return true;
  if (!withMarkers(kWandTrackerId)) {
    if (defaultWandFile.empty()) return false;
    auto wand = std::make_unique<Tracker>(ZOR_RIGID_TRACKER, kWandTrackerId, defaultWandFile);
    if (wand->markers.empty()) return false;
    replaceTracker(std::move(wand));
  }

  if (FindTracker(kCalibTrackerId)) RemoveTracker(kCalibTrackerId);
  if (connected()) Flush();
  std::vector<Tracker*> wands;
  for (auto& t : trackers)
    if (t->id == kWandTrackerId && !t->markers.empty()) wands.push_back(t.get());
  for (Tracker* wand : wands) {
    auto copy = std::make_unique<Tracker>(*wand);
    copy->id = kCalibTrackerId;
    copy->type = ZOR_CALIB_TRACKER;
    Tracker* added = AddTracker(std::move(copy));
    if (connected()) {
      zorScale(1.0f);
      added->Create();
      zorScale(scale);
    }
  }
  return true;
}

void CalibSession::setWandFiles(const std::vector<std::string>& files) {
  if (files.empty()) return;
  if (FindTracker(kWandTrackerId)) RemoveTracker(kWandTrackerId);
  std::printf("adding wand tracker: %s\n", files.front().c_str());
  replaceTracker(std::make_unique<Tracker>(ZOR_RIGID_TRACKER, kWandTrackerId, files.front()));
  std::for_each(files.begin() + 1, files.end(),
                [this](const std::string& file) { addWandFile(file); });
  wandChanged();
}

void CalibSession::wandChanged() {
  // The calibration tracker is a copy of the wand: make it again.
  if (Tracker* calib = FindTracker(kCalibTrackerId)) calib->markers.clear();
  prepareCalibrationTracker(std::string());
}

void CalibSession::addWandFile(const std::string& fileName) {
  Tracker* wand = FindTracker(kWandTrackerId);
  if (!wand) return;
  const size_t before = wand->markers.size();
  wand->Read(wand->type, fileName);
  // Numbered after the markers already there so that the files' ids differ.
  for (size_t i = before; i < wand->markers.size(); ++i)
    wand->markers[i].index += static_cast<int32_t>(before);
  std::printf("%s added to existing wand tracker\n", fileName.c_str());
  wandAdded = 1;
}

int32_t CalibSession::openRaw(ConnectionSettings& request) {
  if (!recordRaw || rawOpen) return 0;
  std::string name;
  if (!makeCaptureFileName(name)) {
    // All of today's names are taken (or the folder cannot be read): the
    // caller reports the 0 so that the capture is not taken as recorded.
    std::printf("error: no free capture file name in the working folder\n");
    return 0;
  }
  std::printf("writing RPD: %s\n", name.c_str());
  request.rpdMode = 1;
  request.rpdFile = name;
  const int32_t result = rpdOpen(request);
  if (result == 1) {
    rawOpen = 1;
    rawFile = name;
  }
  return result;
}

void CalibSession::drainRaw() {
  if (!rawOpen) return;
  int moved = 0;
  while ((moved = zorRPDRecv()) > 0) {
  }
  if (moved < 0) closeRaw();
}

void CalibSession::closeRaw() {
  if (!rawOpen) return;
  rpdClose();
  rawOpen = 0;
}

int32_t CalibSession::qualityForRow(int row) {
  static constexpr int32_t kQuality[] = {100, 200, 400, 800, 1200, 0};
  return row >= 0 && row < 6 ? kQuality[row] : 100;
}
