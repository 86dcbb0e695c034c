#include "link/tracker_check.h"

#include <cmath>
#include <cstdio>
#include <fstream>

namespace {

constexpr int kMaxMarkers = 4096;  // 12 bits of marker index on the wire

std::string At(const std::string& fileName, int line, const std::string& what) {
  return fileName + ":" + std::to_string(line) + ": " + what;
}

}  // namespace

std::string CheckTrackerFile(const std::string& fileName) {
  std::ifstream in(fileName);
  if (!in) return {};
  std::string text;
  int line = 0, markers = 0;
  while (std::getline(in, text)) {
    ++line;
    if (!text.empty() && text[0] == '#') continue;
    int led = 0;
    float x = 0, y = 0, z = 0;
    const int got = std::sscanf(text.c_str(), "%d, %f %f %f", &led, &x, &y, &z);
    if (got < 1) continue;  // scale lines and what the reader itself rejects
    if (led < 0) return At(fileName, line, "negative LED id " + std::to_string(led));
    if (got == 4 && !(std::isfinite(x) && std::isfinite(y) && std::isfinite(z)))
      return At(fileName, line, "coordinates are not finite numbers");
    if (++markers > kMaxMarkers)
      return At(fileName, line, "more than " + std::to_string(kMaxMarkers) + " markers");
  }
  return {};
}

bool TrackerFileAccepted(const std::string& fileName) {
  const std::string problem = CheckTrackerFile(fileName);
  if (!problem.empty()) std::fprintf(stderr, "error: %s\n", problem.c_str());
  return problem.empty();
}
