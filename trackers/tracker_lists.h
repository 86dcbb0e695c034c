// What the tracker bar works out from the session's tracker list without any
// widget: the next free tracker id, the LEDs no tracker uses, the LEDs of a
// tracker seen since the last trim, and the listing of a saved tracker.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "link/tracker.h"

using TrackerList = std::vector<std::unique_ptr<Tracker>>;

// The LED of a packed marker id ((tracker << 12) | index); -1 when no tracker
// of the list has that marker.
int32_t LedOfMarker(const TrackerList& trackers, int32_t markerId);

// Packed ids of the frame's markers at `indices` (indices past the frame are skipped).
std::vector<int32_t> MarkerIdsAt(const std::vector<int>& indices,
                                 const std::vector<ZORMarker>& frame);

// "PT", "RB", "CalibRB", or the type in hexadecimal for anything else.
std::string TrackerTypeLabel(uint32_t type);

// The lowest id not in use below the largest one; the tracker count when the
// ids are dense (or there is no gap).
int32_t NextFreeTrackerId(const TrackerList& trackers);

// LED ids 0 .. maxMarkers-1 that no tracker of the list uses, increasing.
std::vector<int32_t> UnusedLeds(const TrackerList& trackers, int maxMarkers);

// LEDs of `tracker` whose markers were seen: seen[i] flags the marker at
// index i of the frame's marker array `frameIds` (packed wire ids).
std::vector<int32_t> SeenLeds(const Tracker& tracker, const std::vector<char>& seen,
                              const std::vector<int32_t>& frameIds);

// The body of the "Saved Point File" box: one line per rigid marker (LED in
// 5 columns, x y z in 10 with two decimals), or the LED ids separated by
// ", " with a line break after the ids at positions 16, 32, 48...
std::string SavedLedsText(const Tracker& tracker);
