// What the session needs to open a connection: the server to reach, the frame
// rate to ask for and the flags handed to zorInit. The "Settings" dock fills
// it from its widgets and the .mcclient file.
#pragma once

#include <cstdint>
#include <string>

struct ConnectionSettings {
  std::string server;        // host name or address, optionally ":port"
  float frequency = 480.0f;  // frames per second
  uint32_t flags = 0;        // bit 0 slave mode, 0x10 post-processing, 0x100..0x400 mode
  int32_t interpolate = 0;   // sent to the server only when > 0
  int32_t rpdMode = 0;       // raw recording: 0 off, 1 record, 2 send a file
  std::string rpdFile;
};
