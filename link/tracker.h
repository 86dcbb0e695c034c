// Tracker: the client's description of one server-side tracker, a set of
// LED markers followed either as loose points or as one rigid body. It is
// created, enabled, disabled and destroyed on the server through zorsock, and
// read from and written to tracker files (.rb rigid bodies, .pt point sets).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zorsock/zorsock.h"

struct TrackerMarker {
  int32_t index = 0;            // number inside the tracker (low 12 bits of the wire id)
  int32_t ledId = 0;            // the physical LED
  std::vector<float> position;  // empty, or x, y, z in the tracker's frame
};

struct TrackerOption {
  int32_t param = 0;
  float value = 0.0f;
};

class Tracker {
 public:
  // `count` markers, marker i on LED i, no positions.
  Tracker(uint32_t type, int32_t id, int count);
  // Marker i on LED ledIds[i], no positions.
  Tracker(uint32_t type, int32_t id, const std::vector<int32_t>& ledIds);
  // Marker i on LED i at scale * (c[3i], c[3i+1], c[3i+2]).
  Tracker(uint32_t type, int32_t id, const float* coordinates, int count, float scale);
  // Copies of `markers` with every position value times `scale`.
  Tracker(uint32_t type, int32_t id, const std::vector<TrackerMarker>& markers, float scale);
  // Read from a tracker file (see Read).
  Tracker(uint32_t type, int32_t id, const std::string& fileName);

  // Sends the tracker to the server: 1, or -1 when the tracker itself could
  // not be created (reported only with checkErrors).
  int32_t Create();
  void Update(bool on);
  void Destroy();

  void SetOption(int32_t param, float value, bool replace);
  // Inserts LED ledId before the first marker with a greater LED and
  // renumbers; appends it when there is none.
  void AddMarker(int32_t ledId);
  // Removes the marker numbered `index`; returns its LED, or -1.
  int32_t RemoveMarker(int32_t index);

  // Appends the markers of a tracker file; returns the marker count, 0 when
  // the file cannot be opened or holds a malformed line.
  int32_t Read(uint32_t fileType, const std::string& fileName);
  bool Write(const std::string& fileName, float scale) const;

  bool isRigid() const { return type == ZOR_RIGID_TRACKER || type == ZOR_CALIB_TRACKER; }
  static int32_t WireId(int32_t trackerId, int32_t index) { return (trackerId << 12) | index; }

  uint32_t type;
  int32_t id;
  bool enabled = true;
  int32_t checkErrors = 0;
  std::string name;
  std::vector<TrackerOption> options;
  std::vector<TrackerMarker> markers;
};
