// The orientation bar's two small text formats, as pure functions over text so
// that they can be tested and fed anything without a window:
//  - ".default.sav": "marker_count: N" and "axes: a b c" lines;
//  - the alignment body file: one "id, x y z" line per marker.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct AlignBodyMarker {
  // Bits of `given`: which coordinates were typed in.
  static constexpr uint32_t kX = 0x1, kY = 0x2, kZ = 0x4;
  std::string name;
  float x = 0, y = 0, z = 0;
  uint32_t given = 0;
  double number = 0;  // the LED the marker sits on
};

// A body has at least 3 markers (fewer define no frame) and at most as many
// as a tracker can hold; a count outside is ignored, wherever it comes from.
constexpr int kMinAlignMarkers = 3;
constexpr int kMaxAlignMarkers = 4096;
inline bool AlignMarkerCountOk(long long n) { return n >= kMinAlignMarkers && n <= kMaxAlignMarkers; }

struct OrientationDefaults {
  std::optional<int> markerCount;         // the last good "marker_count:" line
  std::optional<std::array<int, 3>> axes;  // the last good "axes:" line, each 0..5
  std::vector<std::string> unknown;        // lines that are neither, for the complaint
};

OrientationDefaults ParseOrientationDefaults(const std::string& text);
std::string FormatOrientationDefaults(int markerCount, const std::array<int, 3>& axes);

// Every well-formed line with finite coordinates gives a marker named after its id.
std::vector<AlignBodyMarker> ParseAlignBody(const std::string& text);
std::string FormatAlignBody(const std::vector<AlignBodyMarker>& markers);
