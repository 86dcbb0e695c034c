#include <cstdio>

#include "app/start_up.h"

int main(int argc, char** argv) {
  // Diagnostics are read line by line by whoever started us, even through a pipe.
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  return RunCalibClient(argc, argv);
}
