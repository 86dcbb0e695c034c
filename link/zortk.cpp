#include "link/zortk.h"

#include <algorithm>
#include <cstdio>
#include <utility>

ZOR::ZOR(int markerCapacity, float initialScale) : scale(initialScale) {
  markers.reserve(std::max(markerCapacity, 0));
}

ZOR::~ZOR() {
  if (running) Done();
}

void ZOR::ResetFrames() {
  lastFrame = 0;
  markers.clear();
  rigids.clear();
  images.clear();
  detectors.clear();
  cameras.clear();
  assembler.Clear();
}

int32_t ZOR::Init(const ConnectionSettings& settings, bool startStreaming, bool setFrequency) {
  ResetFrames();
  flags = settings.flags;
  const int32_t ret = zorInit(settings.server.c_str(), settings.flags);
  if (ret < 0) return ret;
  if (!slave() && settings.interpolate > 0) zorSetInteger(ZOR_INTERPOLATE, settings.interpolate);
  zorLoadPose(pose.data());
  zorScale(scale);
  if (!slave()) CreateTrackers();
  if (zorGetStatus() == 0) {
    // The server refused the set-up. Close the link too, or the next attempt
    // would find the library still connected.
    zorDone();
    return -1;
  }
  if (startStreaming) zorSetInteger(ZOR_STREAMING, ZOR_ON);
  if (setFrequency) SetFrequency(settings.frequency);
  running = 1;
  return ret;
}

void ZOR::SetStreaming(bool on) { zorSetInteger(ZOR_STREAMING, on ? ZOR_ON : ZOR_OFF); }

int32_t ZOR::SetFrequency(float f) {
  frequency = 0.0f;
  // A slave may only set the rate of a server that has none yet.
  const bool send = !slave() || (zorGetStatus() != 0 &&
                                 zorGetFloatv(ZOR_FREQUENCY, &frequency) > 0 && frequency == 0.0f);
  if (!send) return 0;
  zorSetFloat(ZOR_FREQUENCY, f);
  if (zorGetStatus() != 0) {
    zorGetFloatv(ZOR_FREQUENCY, &frequency);
    return 1;
  }
  const int32_t error = zorGetError();
  return error == ZOR_INVALID_OPERATION ? 0 : error;
}

void ZOR::LoadPose(const float newPose[7]) {
  std::copy(newPose, newPose + 7, pose.v);
  zorLoadPose(pose.data());
}

void ZOR::CreateTrackers() {
  zorScale(1.0f);  // tracker geometry always goes unscaled
  for (auto& tracker : trackers) tracker->Create();
  zorScale(scale);
}

Tracker* ZOR::FindTracker(int32_t id) {
  for (auto& tracker : trackers)
    if (tracker->id == id) return tracker.get();
  return nullptr;
}

Tracker* ZOR::AddTracker(std::unique_ptr<Tracker> tracker) {
  trackers.push_back(std::move(tracker));
  return trackers.back().get();
}

bool ZOR::RemoveTracker(int32_t id) {
  auto it = std::find_if(trackers.begin(), trackers.end(),
                         [id](const auto& tracker) { return tracker->id == id; });
  if (it == trackers.end()) {
    std::printf("warning: ZOR::RemoveTracker: tracker id not found\n");
    return false;
  }
  if (running) (*it)->Destroy();
  trackers.erase(it);
  return true;
}

void ZOR::RemoveAllTrackers(int32_t keepId) {
  if (!running) return;
  for (auto& tracker : trackers)
    if (tracker->id != keepId) tracker->Destroy();
}

int32_t ZOR::Poll() {
  if (!running) return 0;
  lastError = zorGetError();
  if (lastError == ZOR_NO_ERROR) return FetchFrame();
  running = 0;
  if (lastError == ZOR_FINISHED) {
    std::printf("zor stopped\n");
  } else {
    zorDone();
  }
  return -1;
}

int32_t ZOR::FetchFrame() {
  const int resets = assembler.resets;
  const bool delivered = assembler.Fetch(*this);
  if (assembler.resets != resets) std::printf("resetting frame...\n");
  return delivered ? 1 : 0;
}

void ZOR::Flush() {
  if (!running) return;
  if (zorGetStatus() == 0)
    std::printf("warning: ZOR::Flush: error during flushing (e=%x)\n", zorGetError());
  for (int i = 0; i < kFlushPolls && Poll() != 0; ++i) {
  }
  assembler.Clear();
}

int32_t ZOR::rpdOpen(ConnectionSettings& request) {
  if (request.rpdMode == 0) return 0;
  if (request.rpdMode == 1 && !running) return 0;
  if (request.rpdMode == 2 && running) return 0;
  const int32_t result =
      zorRPDOpen(request.server.c_str(), request.rpdFile.c_str(), request.rpdMode);
  if (result < 0) {
    request.rpdMode = 0;
    std::printf("RPD ERROR...%d\n", result);
    return result;
  }
  if (request.rpdMode == 2) zorRPDSend();
  return 1;
}

int32_t ZOR::rpdClose() { return zorRPDClose(); }

void ZOR::Done() {
  zorRPDClose();
  if (!slave()) RemoveAllTrackers(-1);
  zorDone();
  running = 0;
}

std::string ZOR::ErrorText(int32_t code, int context, const std::string& server) {
  const bool init = context == kErrorInitConsole || context == kErrorInitDialog;
  switch (code) {
    case ZOR_INVALID_VALUE:
      return init ? "error: zorInit: Invalid Value" : "Invalid Value";
    case ZOR_INVALID_ENUM:
      return init ? "error: zorInit: Invalid Enum" : "Invalid Enum";
    case ZOR_INVALID_OPERATION:
      return init ? "error: zorInit: Invalid Operation"
                                          : "Invalid Operation";
  }
  if (context == kErrorInitConsole) {
    switch (code) {
      case ZOR_ERR_CONNECTION_REFUSED:
        return "error: Initialization failed connecting to " + server + " (Connection Refused)";
      case ZOR_ERR_NETWORK_UNREACHABLE:
        return "error: Initialzation failed connecting to " + server + "(Network Unreachable)";
      case ZOR_ERR_HOST_UNREACHABLE:
        return "error: Initialzation failed connecting to " + server + "(Host Unreachable)";
      case ZOR_ERR_TIMED_OUT:
        return "error: (Timed Out)";
    }
    return "error: zorInit: " + std::to_string(code) + ": check server messages.";
  }
  if (context == kErrorInitDialog) {
    const std::string failed = "Initialzation failed connecting to " + server + ". ";
    switch (code) {
      case ZOR_ERR_CONNECTION_REFUSED:
        return failed + "(Connection Refused) \nPlease check that zord is running on " + server +
               ".";
      case ZOR_ERR_NETWORK_UNREACHABLE:
        return failed +
               "(Network Unreachable) \nPlease check that you have a live network connection.";
      case ZOR_ERR_HOST_UNREACHABLE:
        return failed + "(Host Unreachable) \nPlease check than there is a computer running zord on " +
               server + ".";
      case ZOR_ERR_TIMED_OUT:
        return failed + "(Timed Out) \nPlease check that there is a computer running zord on " +
               server + ".";
    }
    return "Initialization Failed (" + std::to_string(code) + ").  Check that zord is still running on " +
           server + " and see server messages.";
  }
  switch (code) {
    case ZOR_NO_ERROR:
      return "No Error";
    case ZOR_FINISHED:
      return "Finished";
  }
  char hex[16];
  std::snprintf(hex, sizeof hex, "%x", static_cast<unsigned>(code));
  return hex;
}
