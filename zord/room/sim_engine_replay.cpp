// Raw data of the simulated cameras: what a raw frame describes, and replay of
// a recording in place of the simulated cameras (docs/rpd.md).
#include <algorithm>
#include <iostream>

#include "zord/room/sim_engine.h"

namespace zord {

namespace wire = zorsock::wire;

wire::RawHeader SimEngine::RawDataHeader() const {
  wire::RawHeader header;
  for (const SceneCamera& cam : scene_->cameras) {
    header.cameras.push_back({static_cast<uint16_t>(std::clamp(cam.nominal.width, 1, 65535)),
                              static_cast<uint16_t>(std::clamp(cam.nominal.height, 1, 65535))});
  }
  header.description = "scene " + scene_->name;
  return header;
}

int SimEngine::StartReplay(std::shared_ptr<const RawRecording> recording, std::string* why) {
  const wire::RawHeader mine = RawDataHeader();
  if (recording->frames.empty()) {
    *why = "the recording holds no frames";
    return ZOR_INVALID_VALUE;
  }
  if (recording->header.cameras.size() != mine.cameras.size()) {
    *why = "the recording has " + std::to_string(recording->header.cameras.size()) +
           " cameras, this installation " + std::to_string(mine.cameras.size());
    return ZOR_INVALID_VALUE;
  }
  for (size_t c = 0; c < mine.cameras.size(); ++c) {
    const wire::RawCamera& a = recording->header.cameras[c];
    const wire::RawCamera& b = mine.cameras[c];
    if (a.width != b.width || a.height != b.height) {
      *why = "camera " + std::to_string(c + 1) + " of the recording has " + std::to_string(a.width) +
             " x " + std::to_string(a.height) + " pixels, this installation's " +
             std::to_string(b.width) + " x " + std::to_string(b.height);
      return ZOR_INVALID_VALUE;
    }
  }
  bool marks_capture = false;
  for (const wire::RawFrame& frame : recording->frames) {
    marks_capture |= (frame.flags & wire::kRawFrameCapturing) != 0;
    for (const ZORImage& image : frame.images) {
      if (scene_->SlotOf(image.led) < 0) {
        *why = "LED " + std::to_string(image.led) + " of the recording is not in this installation";
        return ZOR_INVALID_VALUE;
      }
    }
  }
  std::cerr << "zord: replaying a recording of " << recording->frames.size() << " frames ("
            << recording->header.description << ")\n";
  std::lock_guard lock(mutex_);
  replay_taken_.assign(recording->frames.size(), 0);
  replay_marks_capture_ = marks_capture;
  replay_next_ = 0;
  replay_ = std::move(recording);
  return ZOR_NO_ERROR;
}

nlohmann::json SimEngine::ReplayControl(const nlohmann::json& request) {
  const std::string action = request.value("action", "status");
  if (action == "stop") {
    replay_.reset();
    replay_taken_.clear();
  } else if (action != "status") {
    return {{"ok", false}, {"error", "replay: action must be \"status\" or \"stop\""}};
  }
  nlohmann::json reply{{"ok", true}};
  reply["replay"] = nullptr;
  if (replay_) {
    reply["replay"] = {{"frames", replay_->frames.size()},
                       {"next", replay_next_},
                       {"taken", std::count(replay_taken_.begin(), replay_taken_.end(), 1)}};
  }
  return reply;
}

}  // namespace zord
