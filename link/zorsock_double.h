// A stand-in for the zor* calls of the client library, for tests of the
// session and the trackers without a server. Linked into a test in place of
// the real library's connection functions (the pose math stays real).
//
// Frames are presented as the library presents them: whole frames queue up;
// the ZOR_SEND_* queries answer for the head frame (1 while it has untaken
// records of that kind), the getters hand out the head's records, and
// ZOR_FRAME_NUMBER is the newest frame number received.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "zorsock/zorsock.h"

namespace zordouble {

struct Frame {
  int number = 0;
  std::vector<ZORMarker> markers;
  std::vector<ZORRigid> rigids;
  std::vector<ZORImage> images;
  std::vector<ZORDetector> detectors;
};

struct State {
  int initResult = 0;             // what zorInit returns
  bool connected = false;
  int status = 1;                 // of the last call
  std::deque<int> errors;         // zorGetError pops the front
  std::map<std::string, int> failing;  // call name -> error queued each time it is made
  std::vector<std::string> calls;  // every call except the frame getters and queries
  std::deque<Frame> queue;        // head first
  int newest = -1;                // ZOR_FRAME_NUMBER; -1: no frame yet
  float frequency = 0.0f;
  std::vector<ZORCamera> cameras;
  // Kinds by bit (1 markers, 2 rigids, 4 images, 8 detectors, 16 cameras):
  unsigned holdGet = 0;           // their getters answer 0 (records not come yet)
  unsigned failGet = 0;           // their getters fail (-1)
  int sendOverride = -1;          // >= 0: the ZOR_SEND_* answers, as a fixed bit mask
  std::string version = "test 1.0";
  std::deque<std::string> calibMessages;  // zorGetString(ZOR_CALIB_MESSAGE) pops the front
  std::vector<float> globalTransform = {0, 0, 0, 1, 0, 0, 0};  // ZOR_GLOBAL_TRANSFORM
  std::vector<float> lastFloatv;  // the values of the last zorSetFloatv
  int rpdOpenResult = 1;          // what zorRPDOpen returns
  std::deque<int> rpdRecv;        // zorRPDRecv pops the front; 0 when empty
  std::string rpdFile;            // the file of the last zorRPDOpen
};

State& Double();
void Reset();

// Queues a frame (a frame with no records only advances the frame number).
void Push(const Frame& frame);
Frame MarkerFrame(int number, int count);             // `count` seen markers
Frame MarkerRigidFrame(int number, int markers, int rigids);

// "name(a,b,...)" as the call log writes it; integers in decimal.
std::string Call(const std::string& name, std::initializer_list<long long> args = {});
bool Called(const std::string& call);
int CountCalls(const std::string& prefix);

}  // namespace zordouble
