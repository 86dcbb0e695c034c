#include "widgets/separator.h"

#include <QPainter>

namespace {
constexpr int kThickness = 6;  // room around the two-pixel etched line
}

Separator::Separator(QWidget* parent, Qt::Orientation orientation) : QWidget(parent) {
  setOrientation(orientation);
}

void Separator::setOrientation(Qt::Orientation orientation) {
  orientation_ = orientation;
  if (orientation == Qt::Horizontal)
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  else
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Expanding);
  updateGeometry();
  update();
}

QSize Separator::sizeHint() const {
  return orientation_ == Qt::Horizontal ? QSize(20, kThickness) : QSize(kThickness, 20);
}

void Separator::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  const QPalette& p = palette();
  if (orientation_ == Qt::Horizontal) {
    const int y = height() / 2 - 1;
    painter.setPen(p.color(QPalette::Dark));
    painter.drawLine(0, y, width() - 1, y);
    painter.setPen(p.color(QPalette::Light));
    painter.drawLine(0, y + 1, width() - 1, y + 1);
  } else {
    const int x = width() / 2 - 1;
    painter.setPen(p.color(QPalette::Dark));
    painter.drawLine(x, 0, x, height() - 1);
    painter.setPen(p.color(QPalette::Light));
    painter.drawLine(x + 1, 0, x + 1, height() - 1);
  }
}
