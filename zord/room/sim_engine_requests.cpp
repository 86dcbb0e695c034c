// Client requests to the simulated engine: trackers, the calibration session
// and its state, calibration messages, and the operator console.
#include <algorithm>
#include <cmath>
#include <exception>
#include <iostream>

#include "zord/room/calibration_export.h"
#include "zord/room/sim_engine.h"
#include "zorsock/feedback_wire.h"
#include "zord/room/truth.h"

namespace zord {
namespace {

constexpr int kCalibrationTracker = 1;

// Replies never throw, even when a request echoed back holds bad UTF-8.
std::string Dump(const nlohmann::json& reply) {
  return reply.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

bool IsCalibrationSession(const ClientContext& who) {
  return (who.flags & ZOR_FLAG_CALIBRATE) == ZOR_FLAG_CALIBRATE;
}

}  // namespace

int SimEngine::NeedCalibration(const ClientContext& who) const {
  return IsCalibrationSession(who) ? ZOR_NO_ERROR : ZOR_INVALID_OPERATION;
}

void SimEngine::SessionOpened(const ClientContext& who) {
  if (!IsCalibrationSession(who)) return;
  std::lock_guard lock(mutex_);
  messages_.clear();  // messages of an earlier calibration session are stale
}

void SimEngine::SessionClosed(const ClientContext& who) {
  std::lock_guard lock(mutex_);
  if (working_owner_ == who.session) {
    // Unsaved changes are dropped, but a solved calibration stays current.
    working_ = current_;
    working_owner_.reset();
    RebuildRig();
  }
  if (capture_owner_ == who.session) {
    capturing_ = false;
    capture_ = std::make_shared<CalibrationCapture>();
    std::fill(replay_taken_.begin(), replay_taken_.end(), 0);
    capture_owner_.reset();
  }
  // Its calibration run, if any, has no one left to report to.
  if (calibration_owner_ == who.session) CancelCalibration();
  if (activity_owner_ == who.session) {
    activity_ = ZOR_ACTIVITY_IDLE;
    activity_owner_.reset();
  }
}

// A client says what it is doing; the operator's follow mode plays along.
int SimEngine::NoteActivity(const ClientContext& who, int activity) {
  std::string what;
  if (activity == ZOR_ACTIVITY_IDLE) {
    what = "idle";
  } else if (activity >= ZOR_ACTIVITY_ALIGN && activity < ZOR_ACTIVITY_ALIGN + 3) {
    what = "aligning, point " + std::to_string(activity - ZOR_ACTIVITY_ALIGN + 1) + " of 3 wanted";
  } else if (activity == ZOR_ACTIVITY_ALIGN + 3) {
    what = "aligning, all 3 points taken";
  } else {
    return ZOR_INVALID_VALUE;
  }
  std::cout << "zord: session " << who.session << ": " << what << std::endl;
  std::lock_guard lock(mutex_);
  activity_ = activity;
  activity_owner_ = who.session;
  return ZOR_NO_ERROR;
}

int SimEngine::TrackerOp(const ClientContext& who, int id, int op) {
  std::lock_guard lock(mutex_);
  switch (op) {
    case ZOR_TRACKER_DESTROY:
      return trackers_.Destroy(id);
    case ZOR_ON:
    case ZOR_OFF:
      return trackers_.Enable(id, op == ZOR_ON);
    case ZOR_CALIB_CAPTURE_START:
    case ZOR_CALIB_CAPTURE_STOP:
    case ZOR_CALIB_CAPTURE_RESET:
      break;
    default:
      return ZOR_INVALID_ENUM;
  }
  if (const int e = NeedCalibration(who); e != ZOR_NO_ERROR) return e;
  if (id != kCalibrationTracker) return ZOR_INVALID_VALUE;
  // The running solve reads the capture: it may not change meanwhile.
  if (calibrating_ && op != ZOR_CALIB_CAPTURE_STOP) return ZOR_INVALID_OPERATION;
  if (op == ZOR_CALIB_CAPTURE_START) {
    const Tracker* wand = trackers_.Find(kCalibrationTracker);
    if (!wand || wand->type != ZOR_CALIB_TRACKER) return ZOR_INVALID_OPERATION;
    capturing_ = true;
    capture_owner_ = who.session;
    replay_next_ = 0;  // a replayed capture starts at the recording's start
  } else if (op == ZOR_CALIB_CAPTURE_STOP) {
    capturing_ = false;
  } else {
    capturing_ = false;
    capture_ = std::make_shared<CalibrationCapture>();
    std::fill(replay_taken_.begin(), replay_taken_.end(), 0);
  }
  return ZOR_NO_ERROR;
}

int SimEngine::TrackerOpi(const ClientContext& who, int id, int op, int value) {
  std::lock_guard lock(mutex_);
  if (op == ZOR_TRACKER_CREATE) return trackers_.Create(id, value);
  if (op != ZOR_CALIB_RUN) return ZOR_INVALID_ENUM;
  if (const int e = NeedCalibration(who); e != ZOR_NO_ERROR) return e;
  if (id != kCalibrationTracker || value < 0) return ZOR_INVALID_VALUE;
  return StartCalibration(who, value);
}

int SimEngine::TrackerOpf(const ClientContext&, int id, int param, float value) {
  std::lock_guard lock(mutex_);
  return trackers_.SetOption(id, param, value);
}

int SimEngine::MarkerInts(const ClientContext&, int marker_id, int code,
                          const std::vector<int32_t>& values) {
  if (code != ZOR_MARKER_LED) return ZOR_INVALID_ENUM;
  std::lock_guard lock(mutex_);
  return trackers_.AssignLed(marker_id, values);
}

int SimEngine::MarkerFloats(const ClientContext&, int marker_id, int code,
                            const std::vector<float>& values) {
  if (code != ZOR_MARKER_POSITION) return ZOR_INVALID_ENUM;
  std::lock_guard lock(mutex_);
  return trackers_.SetPosition(marker_id, values);
}

int SimEngine::SetInteger(const ClientContext& who, int code, int value) {
  if (code == ZOR_CLIENT_ACTIVITY) return NoteActivity(who, value);
  if (code != ZOR_CALIB_LOAD_EXISTING && code != ZOR_CALIB_SAVE) return ZOR_INVALID_ENUM;
  if (const int e = NeedCalibration(who); e != ZOR_NO_ERROR) return e;
  std::lock_guard lock(mutex_);
  if (code == ZOR_CALIB_LOAD_EXISTING) {
    if (value != 0 && value != 1) return ZOR_INVALID_VALUE;
    CancelCalibration();  // its result would overwrite the calibration chosen now
    if (value == 0) {
      // A blank calibration: no camera calibrated, no global transform (the
      // old one belonged to the old world frame).
      working_ = CalibrationState();
      working_.cameras.resize(scene_->cameras.size());
    } else {
      working_ = current_;
    }
    working_owner_ = who.session;
    RebuildRig();
    return ZOR_NO_ERROR;
  }
  if (value != 1) return ZOR_INVALID_VALUE;
  if (!options_.state_file.empty()) {
    std::string error;
    if (!SaveCalibration(options_.state_file, working_, &error)) {
      std::cerr << "zord: error: saving the calibration: " << error << "\n";
      messages_.push_back("save failed: " + error);
      return ZOR_INVALID_OPERATION;
    }
  }
  saved_ = current_ = working_;
  working_owner_.reset();
  return ZOR_NO_ERROR;
}

int SimEngine::SetFloats(const ClientContext& who, int code, const std::vector<float>& values) {
  if (code != ZOR_GLOBAL_TRANSFORM) return ZOR_INVALID_ENUM;
  if (const int e = NeedCalibration(who); e != ZOR_NO_ERROR) return e;
  if (values.size() != 7) return ZOR_INVALID_VALUE;
  for (float v : values) {
    if (!std::isfinite(v)) return ZOR_INVALID_VALUE;
  }
  const Eigen::Quaterniond q(values[3], values[4], values[5], values[6]);
  if (q.norm() < 1e-6) return ZOR_INVALID_VALUE;
  std::lock_guard lock(mutex_);
  working_.global.position = Eigen::Vector3d(values[0], values[1], values[2]);
  working_.global.rotation = q.normalized();
  working_owner_ = who.session;
  RebuildRig();
  return ZOR_NO_ERROR;
}

int SimEngine::GetFloats(const ClientContext&, int code, std::vector<float>& out) {
  if (code == ZOR_CALIB_RESULT || code == ZOR_CAMERA_WATCH) {
    std::lock_guard lock(mutex_);
    out = code == ZOR_CALIB_RESULT ? result_floats_ : zorsock::wire::EncodeWatch(watch_);
    return ZOR_NO_ERROR;
  }
  if (code != ZOR_GLOBAL_TRANSFORM) return ZOR_INVALID_ENUM;
  std::lock_guard lock(mutex_);
  out.resize(7);
  ToPose7(working_.global, out.data());
  return ZOR_NO_ERROR;
}

int SimEngine::GetInts(const ClientContext&, int code, std::vector<int32_t>& out) {
  if (code == ZOR_CAMERA_MODELS) {
    std::lock_guard lock(mutex_);
    out = zorsock::wire::EncodeModels(CameraModels(working_, nominal_));
    return ZOR_NO_ERROR;
  }
  if (code != ZOR_CALIB_COVERAGE) return ZOR_INVALID_ENUM;
  std::lock_guard lock(mutex_);
  CoverageInts(out);
  return ZOR_NO_ERROR;
}

int SimEngine::GetString(const ClientContext&, int code, std::string& out) {
  if (code != ZOR_CALIB_MESSAGE) return ZOR_INVALID_ENUM;
  std::lock_guard lock(mutex_);
  out.clear();
  if (!messages_.empty()) {
    out = messages_.front();
    messages_.pop_front();
  }
  return ZOR_NO_ERROR;
}

CalibrationCapture SimEngine::CalibrationData() const {
  std::lock_guard lock(mutex_);
  CalibrationCapture data = *capture_;
  data.wand.clear();
  if (const Tracker* wand = trackers_.Find(kCalibrationTracker)) {
    for (const auto& [index, marker] : wand->markers) {
      if (marker.led >= 0 && marker.has_position) data.wand.push_back({marker.led, marker.position});
    }
  }
  data.nominal.clear();
  for (const SceneCamera& cam : scene_->cameras) data.nominal.push_back(cam.nominal);
  return data;
}

void SimEngine::SetWorkingCameras(const std::vector<CameraCalibration>& cameras, int session) {
  std::lock_guard lock(mutex_);
  for (size_t i = 0; i < cameras.size() && i < working_.cameras.size(); ++i) {
    working_.cameras[i] = cameras[i];
  }
  current_ = working_;
  working_owner_ = session;
  RebuildRig();
}

void SimEngine::PushCalibrationMessage(const std::string& message) {
  std::lock_guard lock(mutex_);
  messages_.push_back(message);
}

std::string SimEngine::Control(const std::string& request_json) {
  using nlohmann::json;
  try {
    const json request = json::parse(request_json);
    if (!request.is_object() || !request.contains("cmd") || !request.at("cmd").is_string()) {
      throw std::runtime_error("expected an object with a \"cmd\" string");
    }
    const std::string cmd = request.at("cmd").get<std::string>();
    std::lock_guard lock(mutex_);
    if (cmd == "truth") return Dump(TruthJson(*scene_, operator_));
    if (cmd == "replay") return Dump(ReplayControl(request));
    if (cmd == "calibration") return Dump(CalibrationExport());
    if (cmd != "status") return Dump(operator_.Handle(request));
    json reply = operator_.Status();
    int calibrated = 0;
    for (const CameraCalibration& cam : working_.cameras) calibrated += cam.calibrated ? 1 : 0;
    json trackers = json::array();
    for (const auto& [id, tracker] : trackers_.all()) {
      trackers.push_back({{"id", id}, {"type", tracker.type}, {"enabled", tracker.enabled},
                          {"markers", tracker.markers.size()}});
    }
    reply["ok"] = true;
    reply["scene"] = scene_->name;
    reply["frame"] = last_frame_;
    reply["cameras"] = scene_->cameras.size();
    reply["calibrated_cameras"] = calibrated;
    reply["leds"] = scene_->LedCount();
    reply["capturing"] = capturing_;
    reply["captured_frames"] = capture_->frames.size();
    reply["captured_observations"] = capture_->observations.size();
    reply["calibrating"] = calibrating_;
    reply["replay"] = ReplayControl(json::object())["replay"];
    reply["trackers"] = trackers;
    return Dump(reply);
  } catch (const std::exception& e) {
    return Dump(json{{"ok", false}, {"error", e.what()}});
  }
}

}  // namespace zord
