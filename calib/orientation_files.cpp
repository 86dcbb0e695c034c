#include "calib/orientation_files.h"

#include <cmath>
#include <cstdio>
#include <sstream>

namespace {

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

}  // namespace

OrientationDefaults ParseOrientationDefaults(const std::string& text) {
  OrientationDefaults d;
  for (const std::string& line : Lines(text)) {
    if (line.empty() || line[0] == '#') continue;
    // Read as long long so that a huge number is out of range, not undefined.
    long long n = 0, a[3] = {};
    if (std::sscanf(line.c_str(), "marker_count: %lld", &n) == 1) {
      if (AlignMarkerCountOk(n)) d.markerCount = static_cast<int>(n);
    } else if (std::sscanf(line.c_str(), "axes: %lld %lld %lld", &a[0], &a[1], &a[2]) == 3) {
      bool ok = true;
      for (long long v : a) ok = ok && v >= 0 && v < 6;
      if (ok) d.axes = std::array<int, 3>{int(a[0]), int(a[1]), int(a[2])};
    } else {
      d.unknown.push_back(line);
    }
  }
  return d;
}

std::string FormatOrientationDefaults(int markerCount, const std::array<int, 3>& axes) {
  std::ostringstream out;
  out << "marker_count: " << markerCount << '\n'
      << "axes: " << axes[0] << ' ' << axes[1] << ' ' << axes[2] << '\n';
  return out.str();
}

std::vector<AlignBodyMarker> ParseAlignBody(const std::string& text) {
  std::vector<AlignBodyMarker> markers;
  for (const std::string& line : Lines(text)) {
    if (markers.size() == kMaxAlignMarkers) break;
    AlignBodyMarker m;
    long long id = 0;
    if (std::sscanf(line.c_str(), "%lld, %f %f %f", &id, &m.x, &m.y, &m.z) != 4) continue;
    if (!std::isfinite(m.x) || !std::isfinite(m.y) || !std::isfinite(m.z)) continue;
    m.number = static_cast<double>(id);
    m.given = AlignBodyMarker::kX | AlignBodyMarker::kY | AlignBodyMarker::kZ;
    m.name = std::to_string(id);
    markers.push_back(m);
  }
  return markers;
}

std::string FormatAlignBody(const std::vector<AlignBodyMarker>& markers) {
  std::ostringstream out;
  for (const AlignBodyMarker& m : markers) {
    // The LED number is typed into the table: anything not a sane id is written as 0.
    const long long id = std::isfinite(m.number) && std::fabs(m.number) < 1e15 ? static_cast<long long>(m.number) : 0;
    out << id << ", " << m.x << ' ' << m.y << ' ' << m.z << '\n';
  }
  return out.str();
}
