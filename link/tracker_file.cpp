// Tracker files. A rigid-body file (.rb) holds lines "LED, x y z"; a point
// file (.pt) holds LED ids, one a line. Lines starting with '#' are comments,
// and a line "s, factor" scales the positions of the lines after it.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "link/save_file.h"
#include "link/tracker.h"

namespace {

constexpr int kMaxLine = 255;

struct FileCloser {
  void operator()(FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<FILE, FileCloser>;

File Open(const std::string& fileName, const char* mode) {
  File file(std::fopen(fileName.c_str(), mode));
  if (!file)
    std::fprintf(stderr, "error: open(%s): %s\n", fileName.c_str(), std::strerror(errno));
  return file;
}

std::string WithoutLineEnd(const char* line) {
  std::string text(line);
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  return text;
}

}  // namespace

int32_t Tracker::Read(uint32_t fileType, const std::string& fileName) {
  File file = Open(fileName, "r");
  if (!file) return 0;

  float scale = 1.0f;
  int32_t index = 0;
  char line[kMaxLine + 1];
  while (std::fgets(line, sizeof line, file.get())) {
    const size_t length = std::strlen(line);
    // A line too long for the buffer ends the reading; what was read stands.
    if (length == kMaxLine && line[length - 1] != '\n' && !std::feof(file.get())) break;
    if (line[0] == '#') continue;

    int ledId = 0;
    float x = 0, y = 0, z = 0;
    const int n = std::sscanf(line, "%d, %f %f %f", &ledId, &x, &y, &z);
    if (n == 4) {
      TrackerMarker marker{index, ledId, {}};
      if (fileType != ZOR_POINT_TRACKER) marker.position = {scale * x, scale * y, scale * z};
      markers.push_back(std::move(marker));
    } else if (n == 1) {
      markers.push_back({index, ledId, {}});
    } else if (n == 0) {
      float factor = 0;
      if (std::sscanf(line, "s, %f", &factor) == 1) scale = factor;
      continue;
    } else {
      std::fprintf(stderr, "%s:%d: invalid string: %s\n", fileName.c_str(), index,
                   WithoutLineEnd(line).c_str());
      return 0;
    }
    ++index;
  }
  return int32_t(markers.size());
}

bool Tracker::Write(const std::string& fileName, float scale) const {
  std::string text;
  char line[kMaxLine + 1];
  if (isRigid()) {
    for (const auto& marker : markers) {
      if (marker.position.size() < 3) continue;
      std::snprintf(line, sizeof line, "%d, %.2f %.2f %.2f \n", marker.ledId,
                    marker.position[0] / scale, marker.position[1] / scale,
                    marker.position[2] / scale);
      text += line;
    }
  } else if (type == ZOR_POINT_TRACKER) {
    for (const auto& marker : markers) text += std::to_string(marker.ledId) + "\n";
  }

  // Written whole or not at all, so a failed save never leaves half a tracker file.
  std::string error;
  if (!SaveFileAtomically(fileName, text, &error)) {
    std::fprintf(stderr, "error: open(%s): %s\n", fileName.c_str(), error.c_str());
    return false;
  }
  std::printf("wrote to %s\n", fileName.c_str());
  return true;
}
