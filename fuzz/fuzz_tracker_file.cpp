// Tracker files as the client reads them: rigid bodies (.rb) and point sets
// (.pt); the first byte picks which. Property: the markers read, written
// out, read back as the same LEDs.
#include "fuzz/fuzz_input.h"
#include "link/tracker.h"

using zorfuzz::Require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const uint32_t type = (data[0] & 1) ? ZOR_POINT_TRACKER : ZOR_RIGID_TRACKER;
  const std::string path = zorfuzz::ScratchFile("tracker", data + 1, size - 1);
  Tracker read(type, 1, 0);
  if (read.Read(type, path) == 0) return 0;

  std::vector<int32_t> written;
  for (const TrackerMarker& m : read.markers) {
    if (type == ZOR_POINT_TRACKER || m.position.size() == 3) written.push_back(m.ledId);
  }
  const std::string out = zorfuzz::ScratchFile("tracker-out", nullptr, 0);
  Require(read.Write(out, 1.0f), "a tracker read can be written");
  Tracker back(type, 1, 0);
  back.Read(type, out);
  std::vector<int32_t> reread;
  for (const TrackerMarker& m : back.markers) reread.push_back(m.ledId);
  Require(reread == written, "written markers read back as the same LEDs");
  return 0;
}
