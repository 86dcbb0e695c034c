#include "widgets/my_table.h"

#include <QHeaderView>

MyTable::MyTable(QWidget* parent, int rows, int columns) : QTableWidget(rows, columns, parent) {
  setEditTriggers(QAbstractItemView::NoEditTriggers);
  setSelectionBehavior(QAbstractItemView::SelectRows);
  verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 4);
  horizontalHeader()->setStretchLastSection(true);
}
