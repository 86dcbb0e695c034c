#include "fuzz/fuzz_input.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace zorfuzz {

std::string ScratchFile(const std::string& name, const uint8_t* data, size_t size) {
  const std::string path = (std::filesystem::temp_directory_path() /
                            ("zorfuzz-" + std::to_string(getpid()) + "-" + name)).string();
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) Require(false, "cannot write the scratch file");
  if (size > 0 && std::fwrite(data, 1, size, f) != size) Require(false, "short write");
  std::fclose(f);
  return path;
}

void Require(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "property failed: %s\n", what);
  std::abort();
}

}  // namespace zorfuzz
