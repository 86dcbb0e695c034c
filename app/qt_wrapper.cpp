#include "app/qt_wrapper.h"

#include <GL/glut.h>

#include <QFont>
#include <QOpenGLContext>
#include <QOpenGLWidget>
#include <QStyleFactory>
#include <QSurfaceFormat>
#include <clocale>
#include <cstdio>

#include "view/gl_view.h"

namespace {

constexpr int kDoubleBuffer = 1, kDepthBuffer = 2, kRgba = 4;

const GLenum kDisabled[] = {GL_ALPHA_TEST, GL_BLEND,        GL_DITHER,     GL_FOG,
                            GL_INDEX_LOGIC_OP, GL_STENCIL_TEST, GL_TEXTURE_1D, GL_TEXTURE_2D, 0};
const GLenum kEnabled[] = {GL_DEPTH_TEST, GL_NORMALIZE, GL_LIGHTING, 0};

// Made by the first QTWrapper and kept for the life of the process.
GLSettings* gSettings = nullptr;

// The views draw with the fixed-function pipeline: ask for a compatibility
// context, or the platform hands out a core profile without it.
QSurfaceFormat FormatFrom(int options) {
  QSurfaceFormat format;
  format.setRenderableType(QSurfaceFormat::OpenGL);
  format.setVersion(2, 1);
  format.setProfile(QSurfaceFormat::CompatibilityProfile);
  format.setOption(QSurfaceFormat::DeprecatedFunctions);
  format.setSwapBehavior(options & kDoubleBuffer ? QSurfaceFormat::DoubleBuffer
                                                 : QSurfaceFormat::SingleBuffer);
  format.setDepthBufferSize(options & kDepthBuffer ? 24 : 0);
  return format;  // RGBA is the only colour mode left; kRgba needs nothing more
}

// Styles of another platform are not built here; fall back to the plain
// Windows look, the nearest one available.
void SetStyle(const char* name) {
  if (QStyleFactory::keys().contains(QString::fromUtf8(name), Qt::CaseInsensitive)) {
    QApplication::setStyle(QString::fromUtf8(name));
  } else {
    QApplication::setStyle(QStringLiteral("Windows"));
  }
}

}  // namespace

QTWrapper::QTWrapper(int& argc, char** argv, const char* style) {
  const bool first = gSettings == nullptr;
  if (first) QSurfaceFormat::setDefaultFormat(FormatFrom(kDoubleBuffer | kDepthBuffer | kRgba));

  // Qt allows one application object at a time; a second wrapper made while
  // one is alive shares it.
  app_ = qApp;
  if (!app_) {
    owned_ = std::make_unique<QApplication>(argc, argv);
    app_ = owned_.get();
  }
  // QApplication takes the user's locale; tracker files and numbers on the
  // command line are read and written with '.' decimals.
  std::setlocale(LC_NUMERIC, "C");

  QApplication::setFont(QFont(QStringLiteral("Helvetica"), 8));
  SetStyle("windowsxp");
  if (style) SetStyle(style);

  if (!first) {
    std::fprintf(stderr, "Warning: QTWrapper already initialized!\n");
    return;
  }
  gSettings = new GLSettings{kDoubleBuffer | kDepthBuffer | kRgba,
                             GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT, kDisabled, kEnabled};
  GLView::SetContextStartState(&QTWrapper::applyGLState);
  // GLUT needs an X display; without one (the offscreen platform) its text
  // drawing is not available and initialising it would end the process.
  if (QGuiApplication::platformName() == QLatin1String("xcb")) glutInit(&argc, argv);
}

QTWrapper::~QTWrapper() = default;

const GLSettings* QTWrapper::glSettings() { return gSettings; }

void QTWrapper::initGL(QOpenGLWidget* glWidget) {
  if (!gSettings) return;
  if (glWidget && !glWidget->isValid()) glWidget->setFormat(FormatFrom(gSettings->formatOptions));
  if (QOpenGLContext::currentContext()) applyGLState();
}

void QTWrapper::applyGLState() {
  if (!gSettings) return;
  for (const GLenum* cap = gSettings->disable; *cap; ++cap) glDisable(*cap);
  for (const GLenum* cap = gSettings->enable; *cap; ++cap) glEnable(*cap);
  glClearColor(0, 0, 0, 1);
}

int QTWrapper::exec() { return QApplication::exec(); }
