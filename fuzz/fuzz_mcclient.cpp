// The client's connection settings file (.mcclient), read at start-up from
// the user's home folder. Every input gives contents, never a crash.
#include <sstream>

#include "fuzz/fuzz_input.h"
#include "link/connection_settings.h"

using zorfuzz::Require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string path = zorfuzz::ScratchFile("mcclient", data, size);
  std::ostringstream info, errors;
  const auto contents = ReadMcclient(path, info, errors);
  Require(contents.has_value(), "an existing file is read");
  return 0;
}
