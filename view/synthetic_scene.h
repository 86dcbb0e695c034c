// A made-up frame for tests, benchmarks and screenshots: markers on a slow
// helix inside a 6 m room, rigid bodies on a ring, cameras around the walls
// looking at the middle, and their 2D images.
#pragma once

class ZOR;

struct SyntheticScene {
  int markers = 128;
  int rigids = 16;
  int cameras = 16;
  int uncalibrated = 0;  // the last n cameras report no calibration
  float frequency = 480;

  // Replaces the session's frame with frame number `frame`.
  void Fill(ZOR& session, int frame) const;
};
