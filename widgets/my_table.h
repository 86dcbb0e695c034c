// MyTable: the table that lists markers: read-only cells, whole rows
// selected, compact rows.
#pragma once

#include <QTableWidget>

class MyTable : public QTableWidget {
  Q_OBJECT

 public:
  explicit MyTable(QWidget* parent = nullptr, int rows = 0, int columns = 0);
};
