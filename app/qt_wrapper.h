// QTWrapper: the GUI application object with the program's font and style,
// plus the process-wide GL settings (made once, with GLUT initialised once).
#pragma once

#include <QApplication>
#include <memory>

#include <GL/gl.h>

class QOpenGLWidget;

// The GL state every view starts from.
struct GLSettings {
  int formatOptions;       // double buffer (1), depth buffer (2), RGBA (4)
  GLbitfield clearMask;    // colour and depth buffer bits
  const GLenum* disable;   // zero-terminated
  const GLenum* enable;    // zero-terminated
};

class QTWrapper {
 public:
  QTWrapper(int& argc, char** argv, const char* style);
  ~QTWrapper();
  QTWrapper(const QTWrapper&) = delete;
  QTWrapper& operator=(const QTWrapper&) = delete;

  // Gives a GL widget the program's format (only before it first shows) and,
  // when a GL context is current, the initial GL state. The first wrapper
  // hands applyGLState() to GLView, whose initializeGL() applies it to every
  // new context.
  static void initGL(QOpenGLWidget* glWidget);
  static void applyGLState();
  // The process-wide record; null until the first QTWrapper.
  static const GLSettings* glSettings();

  int exec();
  QApplication* application() const { return app_; }

 private:
  QApplication* app_ = nullptr;
  std::unique_ptr<QApplication> owned_;
};
