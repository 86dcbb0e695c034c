#include "link/capture_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

std::string CaptureFileName(const std::string& user, int year, int month, int day, int n) {
  char name[512];
  std::snprintf(name, sizeof name, "capture-%s-%d%02d%02d-%02d.rpd", user.c_str(), year, month, day,
                n);
  return name;
}

std::optional<std::string> FreeCaptureFileName(const std::string& directory,
                                               const std::string& user, int year, int month,
                                               int day) {
  const std::string prefix = directory == "." ? "" : directory + "/";
  for (int n = 1; n <= 999; ++n) {
    const std::string path = prefix + CaptureFileName(user, year, month, day, n);
    errno = 0;
    if (std::FILE* file = std::fopen(path.c_str(), "rb")) {
      std::fclose(file);
      continue;
    }
    // Only a name that surely does not exist is free; a file we merely may
    // not read must not be overwritten.
    if (errno == ENOENT) return path;
  }
  return std::nullopt;
}

bool makeCaptureFileName(std::string& name) {
  const char* user = std::getenv("USER");
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  const auto free = FreeCaptureFileName(".", user ? user : "user", local.tm_year + 1900,
                                        local.tm_mon + 1, local.tm_mday);
  if (!free) return false;
  name = *free;
  return true;
}
