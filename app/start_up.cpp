#include "app/start_up.h"

#include <memory>

#include "app/calib_main_window.h"
#include "app/calib_options.h"
#include "app/qt_wrapper.h"

namespace {
const char* const kTitle = "Corvane System Calibration";
}

int RunCalibClient(int& argc, char** argv) {
  auto options = std::make_unique<CalibOptions>(kTitle);
  if (!options->parse(argc, argv)) return 0;

  auto qt = std::make_unique<QTWrapper>(argc, argv, "windowsxp");
  auto window = std::make_unique<CalibMainWindow>(nullptr, kTitle, *options);
  QTWrapper::initGL(window->glView());
  const int result = qt->exec();

  window.reset();
  qt.reset();
  options.reset();
  return result;
}
