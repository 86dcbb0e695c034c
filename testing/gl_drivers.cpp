#include "testing/gl_drivers.h"

#include <dlfcn.h>

#include <fstream>
#include <set>
#include <string>

namespace zortest {

int KeepGlDriversLoaded() {
  std::ifstream maps("/proc/self/maps");
  std::set<std::string> drivers;
  for (std::string line; std::getline(maps, line);) {
    const auto slash = line.find('/');
    if (slash == std::string::npos) continue;
    const std::string path = line.substr(slash);
    if (path.find("/dri/") != std::string::npos && path.ends_with("_dri.so")) drivers.insert(path);
  }
  int pinned = 0;
  for (const std::string& path : drivers) {
    // RTLD_NOLOAD: only mark the copy that is already mapped; the handle is
    // deliberately never closed.
    if (dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE) != nullptr) ++pinned;
  }
  return pinned;
}

}  // namespace zortest
