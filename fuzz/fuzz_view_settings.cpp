// The view settings file (.calibst) as the window reads it at start. Property:
// the settings read, written out, read back to the same settings, with no
// complaint about the written file.
#include <cstring>
#include <string>

#include "app/view_settings.h"
#include "fuzz/fuzz_input.h"

using zorfuzz::Require;

namespace {

bool Same(const ViewSettings& a, const ViewSettings& b) {
  return FormatViewSettings(a) == FormatViewSettings(b);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ViewSettings read;
  ParseViewSettings(std::string(reinterpret_cast<const char*>(data), size), ".calibst", read);
  const std::string written = FormatViewSettings(read);
  ViewSettings back;
  Require(ParseViewSettings(written, ".calibst", back).empty(), "a written file reads without complaint");
  Require(Same(read, back), "written settings read back the same");
  return 0;
}
