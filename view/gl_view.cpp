#include "view/gl_view.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QOpenGLContext>
#include <QWheelEvent>

#include <algorithm>

#include "link/zortk.h"

namespace {
int ButtonOf(Qt::MouseButton b) {
  switch (b) {
    case Qt::MiddleButton: return kButtonMiddle;
    case Qt::RightButton: return kButtonRight;
    default: return kButtonLeft;  // other buttons count as left
  }
}

int ModifiersOf(Qt::KeyboardModifiers m) {
  int bits = 0;
  if (m & Qt::ShiftModifier) bits |= kShift;
  if (m & Qt::ControlModifier) bits |= kControl;
  if (m & Qt::AltModifier) bits |= kAlt;
  return bits;
}

int CharOf(const QKeyEvent* e) {
  if (e->key() == Qt::Key_Tab) return '\t';
  const QString text = e->text();
  if (text.size() == 1 && text[0].unicode() < 128) return text[0].toLatin1();
  return 0;
}
void (*gStartState)() = nullptr;
}  // namespace

void GLView::SetContextStartState(void (*apply)()) { gStartState = apply; }

GLView::GLView(QWidget* parent, const ViewOptions& options)
    : QOpenGLWidget(parent), SceneView(options) {
  setFocusPolicy(Qt::StrongFocus);
  setMouseTracking(true);
  setMinimumSize(64, 48);
  QFont overlay(QStringLiteral("SansSerif"));
  overlay.setPointSize(8);
  setFont(overlay);
}

GLView::~GLView() {
  // The lists live in our context; delete them while it still exists, and
  // stop the context from calling back into the parts already gone.
  QObject::disconnect(contextGone_);
  if (context()) {
    makeCurrent();
    ReleaseGL();
    doneCurrent();
  }
}

void GLView::initializeGL() {
  if (gStartState) gStartState();
  InitializeGL();
  QObject::disconnect(contextGone_);
  contextGone_ = connect(context(), &QOpenGLContext::aboutToBeDestroyed, this, [this] {
    makeCurrent();
    ReleaseGL();
    doneCurrent();
  });
}

void GLView::resizeGL(int w, int h) {
  const qreal ratio = devicePixelRatioF();
  Resize(qRound(w * ratio), qRound(h * ratio));
}

void GLView::paintGL() {
  const uint32_t t0 = clock().Now();
  Paint();
  const uint32_t t1 = clock().Now();
  rates_.OnPaint(t0, t1);
  SetOverlayText(rates_.combined());
}

// ---------------------------------------------------------------- events

void GLView::Track(const QPointF& p, Qt::KeyboardModifiers modifiers) {
  const qreal ratio = devicePixelRatioF();
  mouse_.MoveTo(qRound(p.x() * ratio), pixelHeight() - qRound(p.y() * ratio));
  mouse_.modifiers = ModifiersOf(modifiers);
}

void GLView::Dispatch() {
  // Picking draws in selection mode: the context must be current.
  makeCurrent();
  const bool repaint = Mouse(mouse_);
  doneCurrent();
  if (repaint) update();
}

void GLView::mousePressEvent(QMouseEvent* e) {
  Track(e->position(), e->modifiers());
  mouse_.Press(ButtonOf(e->button()));
  Dispatch();
}

void GLView::mouseReleaseEvent(QMouseEvent* e) {
  Track(e->position(), e->modifiers());
  mouse_.Release(ButtonOf(e->button()));
  Dispatch();
}

void GLView::mouseMoveEvent(QMouseEvent* e) {
  Track(e->position(), e->modifiers());
  mouse_.Motion();
  Dispatch();
}

// The scene tells double clicks apart by time; Qt's own event is a press.
void GLView::mouseDoubleClickEvent(QMouseEvent* e) { mousePressEvent(e); }

void GLView::wheelEvent(QWheelEvent* e) {
  const int delta = e->angleDelta().y();
  if (delta == 0) return;
  Track(e->position(), e->modifiers());
  const int button = delta >= 1 ? kWheelForward : kWheelBackward;
  mouse_.Press(button);
  Dispatch();
  mouse_.Release(button);
  Dispatch();
  e->accept();
}

void GLView::keyPressEvent(QKeyEvent* e) {
  mouse_.modifiers = ModifiersOf(e->modifiers());
  if (Key(CharOf(e), true, mouse_)) {
    update();
    emit sg_SwitchesChanged();
  } else {
    QOpenGLWidget::keyPressEvent(e);
  }
}

void GLView::keyReleaseEvent(QKeyEvent* e) {
  mouse_.modifiers = ModifiersOf(e->modifiers());
  if (e->isAutoRepeat()) return;
  Key(CharOf(e), false, mouse_);
}

void GLView::OnSelectionChanged() {
  // Tell the tracker tools which markers were added since the last change.
  const std::vector<int> markers = selection().markers, drag = selection().dragMarkers;
  for (int i : markers) {
    if (std::find(lastMarkers_.begin(), lastMarkers_.end(), i) == lastMarkers_.end()) {
      emit sg_MarkerSelected(i);
    }
  }
  for (int i : drag) {
    if (std::find(lastDrag_.begin(), lastDrag_.end(), i) == lastDrag_.end()) {
      emit sg_MarkerDragSelected(i);
    }
  }
  lastMarkers_ = markers;
  lastDrag_ = drag;
  emit sg_SelectionChanged();
  update();
}

void GLView::OnManipulated() {
  emit sg_Manipulated();
  update();
}

// ---------------------------------------------------------------- slots

void GLView::Toggle(bool& flag) {
  flag = !flag;
  emit sg_SwitchesChanged();
  update();
}

void GLView::sl_Fill() { Toggle(draw.fill); }
void GLView::sl_BrNone() { markerStore().SetBrush(kBrushNone), update(); }
void GLView::sl_BrPoints() { markerStore().SetBrush(kBrushPoints), update(); }
void GLView::sl_BrLines() { markerStore().SetBrush(kBrushLines), update(); }
void GLView::sl_Fade() {
  markerStore().SetFade(!markerStore().fade());
  emit sg_SwitchesChanged();
  update();
}
void GLView::sl_Follow() { Toggle(draw.follow); }
void GLView::sl_ShowDistance() { Toggle(draw.showDistance); }
// Between the room-sized scale and a tenth of it, for large halls.
void GLView::sl_Scale() {
  SetViewScale(viewScale() > 0.005f ? 0.002f : 0.01f);
  emit sg_SwitchesChanged();
  update();
}
void GLView::sl_Ids() { Toggle(draw.markerIds); }
void GLView::sl_Filter() {
  markerStore().SetFiltering(!markerStore().filtering());
  emit sg_SwitchesChanged();
  update();
}
void GLView::sl_Slots() { Toggle(draw.bySlot); }
void GLView::sl_Shadows() { Toggle(draw.shadows); }
void GLView::sl_Cameras() { Toggle(draw.cameras); }
void GLView::sl_CamCones() { Toggle(draw.cones); }
void GLView::sl_CamStands() { Toggle(draw.stands); }
void GLView::sl_Reset() { ResetCamera(), update(); }
void GLView::sl_View2d() {
  SetView2d(!view2d());
  emit sg_SwitchesChanged();
  update();
}
void GLView::sl_SelectFocus() { FocusSelection(), update(); }
void GLView::sl_Select(int n) { UseSelectionSet(n); }
void GLView::sl_ClearSelections() { ClearSelection(); }
void GLView::sl_ProcessFrame() { ProcessFrame(); }
