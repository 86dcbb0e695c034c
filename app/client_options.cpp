#include "app/client_options.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "zorsock/zorsock.h"

bool IsSwitch(const char* arg, const char* name) { return std::strcmp(arg, name) == 0; }

bool IsSwitchWithValue(int argc, char** argv, int index, const char* name) {
  return index + 1 < argc && IsSwitch(argv[index], name);
}

int RedrawInterval(float fps) {
  // The rate is clamped before it becomes an int (a huge float would not fit):
  // below 1 fps wait a second rather than divide by 0, and above 1000 fps
  // redraw every millisecond rather than let a 0 ms timer spin.
  const float clamped = std::clamp(fps, 1.0f, 1000.0f);
  return 1000 / static_cast<int>(clamped);
}

namespace {

// True when the text from the last '.' to the end is exactly `extension`.
bool HasExtension(const char* arg, const char* extension) {
  const char* dot = std::strrchr(arg, '.');
  return dot && std::strcmp(dot, extension) == 0;
}

}  // namespace

ClientOptions::ClientOptions(const std::string& title_) : title(title_) {}

int ClientOptions::parseArgument(int argc, char** argv, int& index) {
  const char* arg = argv[index];
  const auto value = [&](const char* name) { return IsSwitchWithValue(argc, argv, index, name); };

  if (value("-p")) {
    trackerFiles.push_back(argv[++index]);
    return 1;
  }
  if (value("-gridlen")) {
    const float length = static_cast<float>(std::atof(argv[++index]));
    if (length > 0) gridLength = length;
    return 1;
  }
  if (value("-gridct")) {
    const int count = std::atoi(argv[++index]);
    if (count > 0) gridCount = count;
    return 1;
  }
  if (value("-gridlabel")) {
    gridLabel = argv[++index];
    return 1;
  }
  if (value("-r")) {
    trackerFiles.push_back(argv[++index]);
    return 1;
  }
  if (value("-fps")) {
    float rate = 0;
    std::sscanf(argv[++index], "%f", &rate);
    if (rate > 0) fps = rate;
    std::printf("fps: %g\n", fps);
    return 1;
  }
  // Takes a value but leaves it to be parsed as an argument of its own.
  if (value("-scale")) return 1;
  if (IsSwitch(arg, "-full")) {
    full = 1;
    return 1;
  }
  if (IsSwitch(arg, "-connect")) {
    connect = 1;
    return 1;
  }
  if (IsSwitch(arg, "-c3dstream")) {
    c3dStream = 1;
    return 1;
  }
  if (IsSwitch(arg, "-h")) {
    help();
    return -1;
  }
  if (IsSwitch(arg, "-u")) {
    usage(argv[0]);
    return -1;
  }
  if (HasExtension(arg, ".rb") || HasExtension(arg, ".pt")) {
    trackerFiles.push_back(arg);
    return 1;
  }
  if (value("-s") || value("-d")) {
    server = argv[++index];
    return 1;
  }
  return 0;
}

int ClientOptions::parse(int argc, char** argv) {
  for (int index = 1; index < argc; ++index) {
    const int result = parseArgument(argc, argv, index);
    if (result == 0) usage(argv[0]);
    if (result == -1) return 0;
  }
  char version[ZOR_STRING_MAX];  // the most the library writes
  if (zorGetString(ZOR_VERSION, version) > 0) std::printf("version: %s\n", version);
  return 1;
}

void ClientOptions::usage(const char* programName) {
  std::printf("usage:  %s [-fps] [-h] [point#] [file.rb] [file.pt]\n", programName);
}

void ClientOptions::help() {
  std::printf("%s\n", title.c_str());
  std::printf("  file.pt        create a point tracker from point file\n");
  std::printf("  file.rb        create a rigid body tracker from rigid body file\n");
  std::printf("  point#         create a point tracker # points\n");
  std::printf("  -h             display this message and exit\n");
  std::printf("  -fps           set the frames per second displayed\n");
}
