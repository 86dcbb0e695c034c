#include "widgets/label_button.h"

#include <QGuiApplication>
#include <QMouseEvent>
#include <QPalette>

const QColor LabelButton::kPressedColor("#e0e0ef");
const QColor LabelButton::kNormalColor("#ccccdf");
const QColor LabelButton::kHoverColor("#dededf");

LabelButton::LabelButton(QWidget* parent, const QString& text) : QLabel(text, parent) {
  setFocusPolicy(Qt::StrongFocus);
  setAlignment(Qt::AlignLeft | Qt::AlignVCenter);
  setWordWrap(true);
  setMargin(10);
  setFrameShape(QFrame::Panel);
  setAutoFillBackground(true);
  setMouseTracking(true);
  setLook(kNormalColor, QFrame::Raised);
}

void LabelButton::setLook(const QColor& color, QFrame::Shadow shadow) {
  if (frameShadow() != shadow) setFrameShadow(shadow);
  if (color == background_) return;  // same colour: no repaint
  background_ = color;
  QPalette p = palette();
  p.setColor(QPalette::Window, color);
  setPalette(p);
  update();
}

bool LabelButton::releasedOver(const QPoint& p) const {
  return p.x() >= 0 && p.x() <= width() && p.y() >= 0 && p.y() <= height();
}

void LabelButton::mousePressEvent(QMouseEvent* event) {
  inside_ = 1;
  setLook(kPressedColor, QFrame::Sunken);
  event->accept();
}

void LabelButton::mouseMoveEvent(QMouseEvent* event) {
  const bool over = rect().contains(event->position().toPoint());
  if (over && inside_ == 0) {
    inside_ = 1;
    setLook(kHoverColor, QFrame::Raised);
  } else if (!over && inside_ == 1) {
    inside_ = 0;
    setLook(kNormalColor, QFrame::Raised);
  }
  QLabel::mouseMoveEvent(event);
}

void LabelButton::mouseReleaseEvent(QMouseEvent* event) {
  if (inside_ != 1) return;
  setLook(kNormalColor, QFrame::Raised);
  inside_ = 0;
  if (releasedOver(event->position().toPoint())) emit sg_Clicked();
}

// The pointer left without a button held: no move arrives outside, so the
// hover look ends here.
void LabelButton::leaveEvent(QEvent* event) {
  if (inside_ == 1 && QGuiApplication::mouseButtons() == Qt::NoButton) {
    inside_ = 0;
    setLook(kNormalColor, QFrame::Raised);
  }
  QLabel::leaveEvent(event);
}
