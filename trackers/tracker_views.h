// The marker views below the tracker list: one panel (TrackerView) per
// tracker, holding a grid (GridView) with one cell per marker labelled
// "tracker:index", coloured by whether the marker is seen in this frame, was
// seen since the last trim, or is selected. A click on a cell selects that
// marker, a drag over cells selects the range; the selection is the 3D
// view's, so both show the same. TrackerViews stacks the panels.
#pragma once

#include <QScrollArea>
#include <QWidget>
#include <cstdint>
#include <vector>

class QLabel;
class QVBoxLayout;

class GridView : public QWidget {
  Q_OBJECT

 public:
  enum CellState : uint8_t { kUnseen = 0, kSeenBefore = 1, kSeen = 2, kSelected = 4 };
  static constexpr int kCellWidth = 34;
  static constexpr int kCellHeight = 16;

  explicit GridView(int32_t trackerId, QWidget* parent = nullptr);

  // One state per marker index; repaints only when something changed.
  void setStates(const std::vector<uint8_t>& states);
  const std::vector<uint8_t>& states() const { return states_; }
  int32_t trackerId() const { return trackerId_; }
  // The marker index under a point of the widget, -1 when none.
  int cellAt(const QPoint& p) const;
  QRect cellRect(int index) const;
  QSize sizeHint() const override;
  bool hasHeightForWidth() const override { return true; }
  int heightForWidth(int width) const override;

 signals:
  // Packed marker ids: (tracker << 12) | index.
  void sg_MarkerSelected(int id);
  void sg_MarkerDragSelected(int id);

 protected:
  void paintEvent(QPaintEvent* e) override;
  void mousePressEvent(QMouseEvent* e) override;
  void mouseMoveEvent(QMouseEvent* e) override;
  void mouseReleaseEvent(QMouseEvent* e) override;
  void resizeEvent(QResizeEvent* e) override;

 private:
  int columns() const;
  int32_t trackerId_;
  std::vector<uint8_t> states_;
  int pressCell_ = -1;
  int dragLow_ = -1, dragHigh_ = -1;  // cells already sent while dragging
};

class TrackerView : public QWidget {
  Q_OBJECT

 public:
  TrackerView(int32_t trackerId, const QString& title, QWidget* parent = nullptr);
  GridView* grid() const { return grid_; }
  int32_t trackerId() const { return grid_->trackerId(); }
  // "[PT:3]  12 / 40 seen"
  void setCounts(int seen, int total);

 private:
  QString title_;
  QLabel* caption_ = nullptr;
  GridView* grid_ = nullptr;
};

class TrackerViews : public QScrollArea {
  Q_OBJECT

 public:
  explicit TrackerViews(QWidget* parent = nullptr);
  TrackerView* add(int32_t trackerId, const QString& title);
  void remove(int32_t trackerId);
  void clear();
  TrackerView* find(int32_t trackerId) const;
  const std::vector<TrackerView*>& views() const { return views_; }

 signals:
  void sg_MarkerSelected(int id);
  void sg_MarkerDragSelected(int id);

 private:
  QWidget* panel_ = nullptr;
  QVBoxLayout* layout_ = nullptr;
  std::vector<TrackerView*> views_;
};
