#include "app/calib_options.h"

#include <cstdio>

int CalibOptions::parseArgument(int argc, char** argv, int& index) {
  const char* arg = argv[index];
  const auto value = [&](const char* name) { return IsSwitchWithValue(argc, argv, index, name); };

  if (IsSwitch(arg, "-auto")) {
    autoCapture = 1;
  } else if (IsSwitch(arg, "-calib")) {
    startMode = 0;
  } else if (IsSwitch(arg, "-align")) {
    startMode = 1;
  } else if (IsSwitch(arg, "-nowiz")) {
    startMode = 2;
  } else if (IsSwitch(arg, "-align1")) {
    startMode = 2;
    alignKind = 1;
  } else if (IsSwitch(arg, "-align2")) {
    startMode = 2;
    alignKind = 2;
  } else if (IsSwitch(arg, "-align3")) {
    startMode = 2;
    alignKind = 3;
  } else if (IsSwitch(arg, "-capture")) {
    capture = 1;
  } else if (IsSwitch(arg, "-orientation") || IsSwitch(arg, "-kelo")) {
    orientation = 1;
  } else if (value("-wand")) {
    wandFiles.push_back(argv[++index]);
  } else if (value("-rigid")) {
    rigidFile = argv[++index];
  } else if (value("-point")) {
    pointFile = argv[++index];
  } else {
    return ClientOptions::parseArgument(argc, argv, index);
  }
  return 1;
}

void CalibOptions::usage(const char* programName) {
  std::printf("usage:  %s [-connect] [-auto] [-fps] [-h] [file.rb]\n", programName);
}

void CalibOptions::help() {
  std::printf("%s\n", title.c_str());
  std::printf("  -connect       automatically connect on start\n");
  std::printf("  -auto          automatically capture on connect\n");
  std::printf("  -fps           set the frames per second displayed\n");
  std::printf("  -h             display this message and exit\n");
  std::printf("  file.rb        create a rigid body tracker from rigid body file\n");
}
