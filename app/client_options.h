// Command-line options understood by every client program of the family. The
// shared loop parse() hands each argument to the virtual parseArgument(), so
// a program adds its own switches by overriding that (and usage/help).
#pragma once

#include <string>
#include <vector>

class ClientOptions {
 public:
  explicit ClientOptions(const std::string& title);
  virtual ~ClientOptions() = default;

  // One argument: 1 understood (index may have moved past a value),
  // 0 not understood, -1 stop now.
  virtual int parseArgument(int argc, char** argv, int& index);
  // All arguments: 1 go on and start the GUI, 0 stop (exit code 0).
  int parse(int argc, char** argv);
  virtual void usage(const char* programName);
  virtual void help();

  std::string title;
  int connect = 0;
  std::string server;
  int height = 600;
  int width = 800;
  int full = 0;
  float fps = 60.0f;
  float scale = -1.0f;
  float gridLength = 0.0f;
  int gridCount = 0;
  std::string gridLabel = "m";
  int c3dStream = 0;
  std::vector<std::string> trackerFiles;
};

// Milliseconds between redraws at `fps`: the rate is truncated to a whole
// number before the division (24.9 fps gives 41 ms).
int RedrawInterval(float fps);

// Whole-argument, case-sensitive switch test; a switch that takes a value
// only matches when a further argument follows.
bool IsSwitch(const char* arg, const char* name);
bool IsSwitchWithValue(int argc, char** argv, int index, const char* name);
