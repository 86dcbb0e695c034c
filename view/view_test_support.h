// Test set-up for GL widgets: the legacy GL format must be the default before
// the application object exists, and GLUT (text) is initialised once.
#pragma once

#include <GL/freeglut.h>

#include <QApplication>
#include <QSurfaceFormat>

inline void UseLegacyGLFormat() {
  QSurfaceFormat format;
  format.setRenderableType(QSurfaceFormat::OpenGL);
  format.setVersion(2, 1);
  format.setProfile(QSurfaceFormat::CompatibilityProfile);
  format.setOption(QSurfaceFormat::DeprecatedFunctions);
  format.setDepthBufferSize(24);
  QSurfaceFormat::setDefaultFormat(format);
}

inline void InitGlutOnce(int& argc, char** argv) {
  if (!glutGet(GLUT_INIT_STATE) && QGuiApplication::platformName() == QLatin1String("xcb")) {
    glutInit(&argc, argv);
  }
}

// The application of a GUI test binary, made once with the legacy format and GLUT.
inline void EnsureTestApp() {
  static int argc = 1;
  static char name[] = "view_test";
  static char* argv[] = {name, nullptr};
  if (qApp) return;
  UseLegacyGLFormat();
  new QApplication(argc, argv);
  InitGlutOnce(argc, argv);
}
