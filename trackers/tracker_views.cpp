#include "trackers/tracker_views.h"

#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QVBoxLayout>
#include <algorithm>

namespace {

QColor CellColour(uint8_t state) {
  if (state & GridView::kSelected) return QColor(255, 200, 40);
  if (state & GridView::kSeen) return QColor(60, 200, 80);
  if (state & GridView::kSeenBefore) return QColor(40, 110, 160);
  return QColor(70, 70, 70);
}

}  // namespace

GridView::GridView(int32_t trackerId, QWidget* parent) : QWidget(parent), trackerId_(trackerId) {
  setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Preferred);
  setAttribute(Qt::WA_OpaquePaintEvent);
}

void GridView::setStates(const std::vector<uint8_t>& states) {
  if (states == states_) return;
  const bool resized = states.size() != states_.size();
  states_ = states;
  if (resized) updateGeometry();
  update();
}

int GridView::columns() const { return std::max(1, width() / kCellWidth); }

int GridView::heightForWidth(int width) const {
  const int cols = std::max(1, width / kCellWidth);
  const int rows = (int(states_.size()) + cols - 1) / cols;
  return std::max(1, rows) * kCellHeight;
}

QSize GridView::sizeHint() const { return {8 * kCellWidth, heightForWidth(8 * kCellWidth)}; }

QRect GridView::cellRect(int index) const {
  const int cols = columns();
  return {(index % cols) * kCellWidth, (index / cols) * kCellHeight, kCellWidth, kCellHeight};
}

int GridView::cellAt(const QPoint& p) const {
  if (p.x() < 0 || p.y() < 0 || p.x() >= columns() * kCellWidth) return -1;
  const int index = (p.y() / kCellHeight) * columns() + p.x() / kCellWidth;
  return index < int(states_.size()) ? index : -1;
}

void GridView::resizeEvent(QResizeEvent* e) {
  QWidget::resizeEvent(e);
  if (height() != heightForWidth(width())) updateGeometry();
}

// Only the cells inside the exposed rectangle are drawn, so a long tracker
// in a scrolled panel costs what is visible.
void GridView::paintEvent(QPaintEvent* e) {
  QPainter painter(this);
  painter.fillRect(e->rect(), palette().window());
  const int cols = columns();
  const QRect area = e->rect();
  const int firstRow = std::max(0, area.top() / kCellHeight);
  const int lastRow = area.bottom() / kCellHeight;
  painter.setFont(QFont("Helvetica", 7));
  for (int row = firstRow; row <= lastRow; ++row) {
    for (int col = 0; col < cols; ++col) {
      const int index = row * cols + col;
      if (index >= int(states_.size())) return;
      const QRect cell = cellRect(index).adjusted(1, 1, -1, -1);
      painter.fillRect(cell, CellColour(states_[size_t(index)]));
      painter.setPen(states_[size_t(index)] & kSelected ? Qt::black : Qt::white);
      painter.drawText(cell, Qt::AlignCenter,
                       QString::asprintf("%01i:%01i", trackerId_, index));
    }
  }
}

void GridView::mousePressEvent(QMouseEvent* e) {
  if (e->button() != Qt::LeftButton) return;
  pressCell_ = cellAt(e->position().toPoint());
  dragLow_ = dragHigh_ = -1;
}

// Dragging from the pressed cell sends every cell of the range once.
void GridView::mouseMoveEvent(QMouseEvent* e) {
  if (pressCell_ < 0 || !(e->buttons() & Qt::LeftButton)) return;
  const int cell = cellAt(e->position().toPoint());
  if (cell < 0 || (cell == pressCell_ && dragLow_ < 0)) return;
  const int low = std::min(cell, pressCell_), high = std::max(cell, pressCell_);
  for (int i = low; i <= high; ++i) {
    if (dragLow_ >= 0 && i >= dragLow_ && i <= dragHigh_) continue;
    emit sg_MarkerDragSelected((trackerId_ << 12) | i);
  }
  dragLow_ = dragLow_ < 0 ? low : std::min(dragLow_, low);
  dragHigh_ = std::max(dragHigh_, high);
}

void GridView::mouseReleaseEvent(QMouseEvent* e) {
  if (e->button() != Qt::LeftButton || pressCell_ < 0) return;
  if (dragLow_ < 0 && cellAt(e->position().toPoint()) == pressCell_)
    emit sg_MarkerSelected((trackerId_ << 12) | pressCell_);
  pressCell_ = dragLow_ = dragHigh_ = -1;
}

TrackerView::TrackerView(int32_t trackerId, const QString& title, QWidget* parent)
    : QWidget(parent), title_(title) {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 2, 0, 2);
  layout->setSpacing(1);
  caption_ = new QLabel(title, this);
  grid_ = new GridView(trackerId, this);
  layout->addWidget(caption_);
  layout->addWidget(grid_);
}

void TrackerView::setCounts(int seen, int total) {
  const QString text = QString("%1  %2 / %3 seen").arg(title_).arg(seen).arg(total);
  if (caption_->text() != text) caption_->setText(text);
}

TrackerViews::TrackerViews(QWidget* parent) : QScrollArea(parent) {
  panel_ = new QWidget(this);
  layout_ = new QVBoxLayout(panel_);
  layout_->setContentsMargins(2, 2, 2, 2);
  layout_->addStretch(1);
  setWidget(panel_);
  setWidgetResizable(true);
  setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
}

TrackerView* TrackerViews::add(int32_t trackerId, const QString& title) {
  auto* view = new TrackerView(trackerId, title, panel_);
  layout_->insertWidget(layout_->count() - 1, view);  // above the stretch
  connect(view->grid(), &GridView::sg_MarkerSelected, this, &TrackerViews::sg_MarkerSelected);
  connect(view->grid(), &GridView::sg_MarkerDragSelected, this, &TrackerViews::sg_MarkerDragSelected);
  views_.push_back(view);
  return view;
}

void TrackerViews::remove(int32_t trackerId) {
  const auto it = std::find_if(views_.begin(), views_.end(),
                               [&](TrackerView* v) { return v->trackerId() == trackerId; });
  if (it == views_.end()) return;
  delete *it;
  views_.erase(it);
}

void TrackerViews::clear() {
  for (TrackerView* view : views_) delete view;
  views_.clear();
}

TrackerView* TrackerViews::find(int32_t trackerId) const {
  for (TrackerView* view : views_)
    if (view->trackerId() == trackerId) return view;
  return nullptr;
}
