// Separator: a thin etched line between groups of controls.
#pragma once

#include <QWidget>

class Separator : public QWidget {
  Q_OBJECT

 public:
  explicit Separator(QWidget* parent = nullptr, Qt::Orientation orientation = Qt::Horizontal);

  Qt::Orientation orientation() const { return orientation_; }
  QSize sizeHint() const override;

 public slots:
  void setOrientation(Qt::Orientation orientation);

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  Qt::Orientation orientation_;
};
