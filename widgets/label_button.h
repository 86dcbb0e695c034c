// LabelButton: a rich-text label that behaves like a flat button. It sinks
// while pressed, lights up while hovered and emits sg_Clicked() when the
// button is released over it.
#pragma once

#include <QColor>
#include <QFrame>
#include <QLabel>

class LabelButton : public QLabel {
  Q_OBJECT

 public:
  explicit LabelButton(QWidget* parent = nullptr, const QString& text = QString());

  static const QColor kPressedColor;
  static const QColor kNormalColor;
  static const QColor kHoverColor;

  bool inside() const { return inside_ != 0; }
  QColor background() const { return background_; }

 signals:
  void sg_Clicked();

 protected:
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void leaveEvent(QEvent* event) override;

 private:
  void setLook(const QColor& color, QFrame::Shadow shadow);
  // The release rule counts one pixel beyond the last column and row.
  bool releasedOver(const QPoint& p) const;

  int inside_ = 0;  // button held on it, or pointer hovering over it
  QColor background_;
  QColor custom_;  // a fourth colour, left unset
};
