// The window's tracker dock and its view settings file (.calibst): the dock
// is made while the window is built, the settings are read once the window's
// actions and options are in place and written when the window goes.
#include <QDockWidget>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "app/calib_main_window.h"
#include "app/view_settings.h"
#include "link/save_file.h"
#include "trackers/tracker_bar.h"
#include "view/gl_view.h"

void CalibMainWindow::createTrackerBar() {
  trackerBar_ = new TrackerBar(&session(), 1.0f, view(), this);
  addDockWidget(Qt::LeftDockWidgetArea, trackerBar_);
}

void CalibMainWindow::loadViewSettings() {
  const std::string fileName = ViewSettingsFileName();
  const std::optional<std::string> text = ReadTextFile(fileName);
  if (!text) return;  // no file yet: the defaults stand

  GLView& v = *view();
  MarkerStore& store = v.markerStore();
  ViewSettings s = currentViewSettings();
  const std::string complaints = ParseViewSettings(*text, fileName, s);
  if (!complaints.empty()) std::fputs(complaints.c_str(), stderr);

  settingsDock()->setVisible(s.configVisible);
  trackerBar_->setVisible(s.trackersVisible);
  if (s.width > 0 && s.height > 0) resize(s.width, s.height);
  v.draw.bySlot = s.bySlot;
  v.draw.cameras = s.cameras;
  v.draw.stands = s.cameraStands;
  v.draw.cones = s.cameraCones;
  v.draw.markerIds = s.markerIds;
  v.SetMarkerScale(s.markerScale);
  v.draw.shadows = s.drawShadow;
  store.SetBrush(s.drawMode);
  trackerBar_->setMaxMarkers(s.markerMax);
  store.SetFilterFrequency(s.filterFrequency);
  store.SetFade(s.enableFade);
  store.SetFadeCount(s.fadeCount);
  store.SetMaxHistory(s.maxCount);
  v.draw.follow = s.followMode;
  showDrawingSwitches();
  v.update();
}

ViewSettings CalibMainWindow::currentViewSettings() const {
  const GLView& v = *view();
  const MarkerStore& store = v.markerStore();
  ViewSettings s;
  s.configVisible = !settingsDock()->isHidden();
  s.trackersVisible = !trackerBar_->isHidden();
  s.width = width();
  s.height = height();
  s.bySlot = v.draw.bySlot;
  s.cameras = v.draw.cameras;
  s.cameraStands = v.draw.stands;
  s.cameraCones = v.draw.cones;
  s.markerIds = v.draw.markerIds;
  s.markerScale = v.markerScale();
  s.drawShadow = v.draw.shadows;
  s.drawMode = store.brush();
  s.markerMax = trackerBar_->maxMarkers();
  s.filterFrequency = store.filterFrequency();
  s.enableFade = store.fade();
  s.fadeCount = store.fadeCount();
  s.maxCount = store.maxHistory();
  s.followMode = v.draw.follow;
  return s;
}

// Replaced as a whole: a crash while writing leaves the previous file.
void CalibMainWindow::saveViewSettings() {
  SaveFileAtomically(ViewSettingsFileName(), FormatViewSettings(currentViewSettings()));
}
