#include "view/camera_grid.h"

#include <algorithm>
#include <cmath>

CameraGrid CameraGrid::Layout(int n, int w, int h) {
  CameraGrid g;
  const double aspect = h - 10 != 0 ? double(w - 10) / (h - 10) : 1.0;
  const double wanted = aspect * n;
  g.columns = std::max(1, wanted > 0 ? static_cast<int>(std::sqrt(wanted)) : 0);
  g.rows = std::max(1, (n + g.columns - 1) / g.columns);
  g.cellWidth = double(std::max(w, 1)) / g.columns;
  g.cellHeight = double(std::max(h, 1)) / g.rows;
  return g;
}

int CameraGrid::CellAt(int x, int y) const {
  const int column = static_cast<int>(x / cellWidth), row = static_cast<int>(y / cellHeight);
  if (x < 0 || y < 0 || column >= columns || row >= rows) return -1;
  return (rows - 1 - row) * columns + column;
}

void CameraGrid::Origin(int index, double& x, double& y) const {
  x = (index % columns) * cellWidth;
  y = (rows - 1 - index / columns) * cellHeight;
}
