// The calibration client's options: the family's general switches plus the
// start mode, wand and tracker files, capture and orientation switches.
#pragma once

#include "app/client_options.h"

class CalibOptions : public ClientOptions {
 public:
  using ClientOptions::ClientOptions;

  int parseArgument(int argc, char** argv, int& index) override;
  void usage(const char* programName) override;
  void help() override;

  int autoCapture = 0;
  int capture = 0;
  int startMode = -1;  // -1 ask; 0 calibration, 1 alignment, 2 advanced without the wizard
  int alignKind = 0;   // 0 none, 1 rigid body, 2 alignment object, 3 wand
  int orientation = 0;
  std::vector<std::string> wandFiles;
  std::string rigidFile;
  std::string pointFile;
};
