// What the main-window tests share: one application object in a HOME of its
// own, warning boxes collected instead of shown, and waiting on the event loop.
#pragma once

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QLabel>
#include <QMainWindow>
#include <QStatusBar>
#include <cstdlib>
#include <functional>
#include <memory>

#include "app/message_box.h"
#include "app/qt_wrapper.h"
#include "testing/gl_drivers.h"
#include "testing/zord_process.h"

namespace zortest {

inline int gAppArgc = 1;
inline char gAppName[] = "zorapp_test";
inline char* gAppArgv[] = {gAppName, nullptr};
inline std::unique_ptr<QTWrapper> gApp;

// The application is made by the first test that needs it and goes before the
// process exits (Qt cannot be torn down from exit handlers). Windows read and
// write the user's .mcclient, hence the private HOME.
inline void EnsureApplication() {
  if (!gApp) gApp = std::make_unique<QTWrapper>(gAppArgc, gAppArgv, "windowsxp");
}
struct AppEnvironment : testing::Environment {
  void SetUp() override {
    home = std::make_unique<TempDir>();
    setenv("HOME", home->path().c_str(), 1);
  }
  void TearDown() override {
    KeepGlDriversLoaded();
    gApp.reset();
  }
  std::unique_ptr<TempDir> home;
};
inline testing::Environment* const gAppEnvironment =
    testing::AddGlobalTestEnvironment(new AppEnvironment);

// Warning boxes arrive in `boxes` as "caption: text".
class WindowFixture : public testing::Test {
 protected:
  void SetUp() override {
    EnsureApplication();
    previous_ = SetWarningHandler(
        [this](QWidget*, const QString& caption, const QString& text) { boxes << caption + ": " + text; });
  }
  void TearDown() override { SetWarningHandler(previous_); }
  QStringList boxes;

 private:
  WarningHandler previous_;
};

inline bool RunUntil(const std::function<bool()>& done, int ms) {
  QElapsedTimer clock;
  clock.start();
  while (clock.elapsed() < ms && !done()) QApplication::processEvents(QEventLoop::AllEvents, 10);
  return done();
}

// The status bar field with the tool tip `tip`.
inline QLabel* StatusField(QMainWindow& w, const char* tip) {
  for (QLabel* label : w.statusBar()->findChildren<QLabel*>())
    if (label->toolTip() == QLatin1String(tip)) return label;
  return nullptr;
}
inline QString StatusText(QMainWindow& w, const char* tip) {
  QLabel* field = StatusField(w, tip);
  return field ? field->text() : "<none>";
}

}  // namespace zortest
