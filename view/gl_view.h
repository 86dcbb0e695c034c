// GLView: the 3D view widget. It turns Qt's events into the scene layer's
// device-neutral calls (positions in device pixels, y from the bottom),
// measures frame timing, and offers the slots of the Drawing menu.
#pragma once

#include <QOpenGLWidget>

#include "view/frame_clock.h"
#include "view/scene_view.h"

class GLView : public QOpenGLWidget, public SceneView {
  Q_OBJECT

 public:
  explicit GLView(QWidget* parent = nullptr, const ViewOptions& options = {});
  ~GLView() override;

  const PaintRates& rates() const { return rates_; }

  // The process-wide GL start state, applied to every view's context when it
  // is made and before the view sets up its own drawing. The application
  // installs it; null leaves the driver's defaults.
  static void SetContextStartState(void (*apply)());
  const MouseState& mouseState() const { return mouse_; }

 public slots:
  // Drawing switches (each toggles, or sets when given a value).
  void sl_Fill();
  void sl_BrNone();
  void sl_BrPoints();
  void sl_BrLines();
  void sl_Fade();
  void sl_Follow();
  void sl_ShowDistance();
  void sl_Scale();
  void sl_Ids();
  void sl_Filter();
  void sl_Slots();
  void sl_Shadows();
  void sl_Cameras();
  void sl_CamCones();
  void sl_CamStands();
  void sl_Reset();
  void sl_View2d();
  void sl_SelectFocus();
  void sl_Select(int n);  // selection set 1..9
  void sl_ClearSelections();
  // One delivered frame of the session: filter and trails (no repaint).
  void sl_ProcessFrame();

 signals:
  // The selection changed by a click, a box, a set or a clear.
  void sg_SelectionChanged();
  // A marker (index in the session's list) was toggled by a click / added by a box.
  void sg_MarkerSelected(int index);
  void sg_MarkerDragSelected(int index);
  // The rotation rings turned the selected rigid body (see manipulator()).
  void sg_Manipulated();
  // A drawing switch changed (menus refresh their check marks).
  void sg_SwitchesChanged();

 protected:
  void initializeGL() override;
  void resizeGL(int w, int h) override;
  void paintGL() override;
  void mousePressEvent(QMouseEvent* e) override;
  void mouseReleaseEvent(QMouseEvent* e) override;
  void mouseMoveEvent(QMouseEvent* e) override;
  void mouseDoubleClickEvent(QMouseEvent* e) override;
  void wheelEvent(QWheelEvent* e) override;
  void keyPressEvent(QKeyEvent* e) override;
  void keyReleaseEvent(QKeyEvent* e) override;
  bool focusNextPrevChild(bool) override { return false; }  // Tab belongs to the view

  void OnSelectionChanged() override;
  void OnManipulated() override;

 private:
  void Track(const QPointF& position, Qt::KeyboardModifiers modifiers);
  void Dispatch();  // mouse state to the scene, with the context current
  void Toggle(bool& flag);

  MouseState mouse_;
  PaintRates rates_;
  QMetaObject::Connection contextGone_;
  std::vector<int> lastMarkers_, lastDrag_;
};
