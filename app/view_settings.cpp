#include "app/view_settings.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "link/settings_number.h"

std::string ViewSettingsFileName() {
  const char* home = std::getenv("HOME");
  if (!home) return ".calibst";
  char buffer[4096];
  std::snprintf(buffer, sizeof buffer, "%s%c%s", home, '/', ".calibst");
  return buffer;
}

std::string FormatViewSettings(const ViewSettings& s) {
  std::ostringstream out;
  out << "configVisible: " << s.configVisible << "\n"
      << "trackersVisible: " << s.trackersVisible << "\n"
      << "width: " << s.width << "\n"
      << "height: " << s.height << "\n"
      << "slots: " << s.bySlot << "\n"
      << "cameras: " << s.cameras << "\n"
      << "camerastands: " << s.cameraStands << "\n"
      << "cameracones: " << s.cameraCones << "\n"
      << "markerids: " << s.markerIds << "\n"
      << "marker_scale: " << s.markerScale << "\n"
      << "draw_shadow: " << s.drawShadow << "\n"
      << "draw_mode: " << s.drawMode << "\n"
      << "marker_max: " << s.markerMax << "\n"
      << "filter_frequency: " << s.filterFrequency << "\n"
      << "enable_fade: " << s.enableFade << "\n"
      << "fade_count: " << s.fadeCount << "\n"
      << "max_count: " << s.maxCount << "\n"
      << "follow_mode: " << s.followMode << "\n";
  return out.str();
}

namespace {

bool Apply(const char* key, const char* value, ViewSettings& s) {
  struct Flag { const char* key; bool ViewSettings::*field; };
  struct Whole { const char* key; int ViewSettings::*field; };
  struct Real { const char* key; float ViewSettings::*field; };
  static const Flag flags[] = {
      {"configVisible:", &ViewSettings::configVisible}, {"trackersVisible:", &ViewSettings::trackersVisible},
      {"slots:", &ViewSettings::bySlot}, {"cameras:", &ViewSettings::cameras},
      {"camerastands:", &ViewSettings::cameraStands}, {"cameracones:", &ViewSettings::cameraCones},
      {"markerids:", &ViewSettings::markerIds}, {"draw_shadow:", &ViewSettings::drawShadow},
      {"enable_fade:", &ViewSettings::enableFade}, {"follow_mode:", &ViewSettings::followMode}};
  static const Whole wholes[] = {
      {"width:", &ViewSettings::width}, {"height:", &ViewSettings::height},
      {"draw_mode:", &ViewSettings::drawMode}, {"marker_max:", &ViewSettings::markerMax},
      {"fade_count:", &ViewSettings::fadeCount}, {"max_count:", &ViewSettings::maxCount}};
  static const Real reals[] = {{"marker_scale:", &ViewSettings::markerScale},
                               {"filter_frequency:", &ViewSettings::filterFrequency}};
  for (const Flag& f : flags)
    if (std::strcmp(key, f.key) == 0) return s.*f.field = SettingInt(value) != 0, true;
  for (const Whole& w : wholes)
    if (std::strcmp(key, w.key) == 0) return s.*w.field = SettingInt(value), true;
  for (const Real& r : reals)
    if (std::strcmp(key, r.key) == 0) return s.*r.field = SettingFloat(value), true;
  return false;
}

}  // namespace

std::string ParseViewSettings(const std::string& text, const std::string& fileName,
                              ViewSettings& settings) {
  std::string complaints;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    if (line.size() > 1023) line.resize(1023);  // lines are read 1024 bytes at most
    if (line.empty() || line[0] == '#') continue;
    char key[1024], value[1024];
    if (std::sscanf(line.c_str(), "%1023s %1023s", key, value) != 2) {
      complaints += "unknown configuration: " + line + "\n";
      continue;
    }
    if (!Apply(key, value, settings))
      complaints += std::string("unknown token: ") + key + " in " + fileName + "\n";
  }
  return complaints;
}
