// The view settings file ".calibst": which docks show, the window size, the
// 3D view's drawing switches, the marker count of the tracker bar, the filter
// and the trails. One "key: value" a line; comments begin with "#". Reading
// and writing are pure functions over text so that they can be tested (and
// fed anything) without a window.
#pragma once

#include <string>

struct ViewSettings {
  bool configVisible = true;
  bool trackersVisible = true;
  int width = 800;
  int height = 600;
  bool bySlot = false;
  bool cameras = true;
  bool cameraStands = false;
  bool cameraCones = false;
  bool markerIds = false;
  float markerScale = 1.0f;
  bool drawShadow = false;
  int drawMode = 0;
  int markerMax = 128;
  float filterFrequency = 0.0f;
  bool enableFade = false;
  int fadeCount = 480;
  int maxCount = 960;
  bool followMode = false;
};

// "$HOME/.calibst", or ".calibst" in the current folder without HOME.
std::string ViewSettingsFileName();

// The eighteen lines, in their fixed order.
std::string FormatViewSettings(const ViewSettings& settings);

// Applies every good line of `text` to `settings`; the complaints about the
// others ("unknown configuration: ...", "unknown token: ... in <fileName>"),
// one a line, are returned for standard error.
std::string ParseViewSettings(const std::string& text, const std::string& fileName,
                              ViewSettings& settings);
