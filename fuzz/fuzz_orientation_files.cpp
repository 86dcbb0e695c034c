// The orientation files read at start and on request: the view orientation
// (.orientation), the orientation bar's defaults (.default.sav) and its
// alignment body files; the first byte picks which. Properties: what is read
// is usable (finite matrix, counts and axes in range), and once written it
// reads back to itself.
#include <cmath>
#include <string>

#include "calib/orientation_files.h"
#include "fuzz/fuzz_input.h"
#include "view/orientation.h"

using zorfuzz::Require;

namespace {

void Orientation(const uint8_t* data, size_t size) {
  OrientationMatrix m = IdentityOrientation();
  if (!ReadOrientationFile(zorfuzz::ScratchFile("orientation", data, size), m)) return;
  for (float v : m) Require(std::isfinite(v), "an orientation read is finite");
  // Six significant digits are written: after one round the file is stable.
  const std::string out = zorfuzz::ScratchFile("orientation-out", nullptr, 0);
  OrientationMatrix once = m, twice = m;
  Require(WriteOrientationFile(out, m) && ReadOrientationFile(out, once), "a written orientation reads");
  Require(WriteOrientationFile(out, once) && ReadOrientationFile(out, twice), "a rewritten orientation reads");
  Require(once == twice, "a written orientation reads back the same");
}

void Defaults(const std::string& text) {
  const OrientationDefaults d = ParseOrientationDefaults(text);
  if (d.markerCount) Require(AlignMarkerCountOk(*d.markerCount), "the marker count is bounded");
  if (!d.markerCount || !d.axes) return;
  for (int a : *d.axes) Require(a >= 0 && a < 6, "axes are in range");
  const OrientationDefaults back = ParseOrientationDefaults(FormatOrientationDefaults(*d.markerCount, *d.axes));
  Require(back.markerCount == d.markerCount && back.axes == d.axes && back.unknown.empty(),
          "written defaults read back the same");
}

void Body(const std::string& text) {
  const std::vector<AlignBodyMarker> read = ParseAlignBody(text);
  Require(read.size() <= size_t(kMaxAlignMarkers), "a body file gives a bounded body");
  const std::string once = FormatAlignBody(read);
  const std::vector<AlignBodyMarker> back = ParseAlignBody(once);
  Require(back.size() == read.size(), "every marker written reads back");
  Require(FormatAlignBody(back) == once, "a written body reads back the same");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  switch (data[0] % 3) {
    case 0: Orientation(data + 1, size - 1); break;
    case 1: Defaults(text); break;
    default: Body(text); break;
  }
  return 0;
}
