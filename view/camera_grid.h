// Layout of the 2D camera view: n cells in a grid that keeps them roughly
// square in a w x h widget, and the cell under a pointer.
#pragma once

struct CameraGrid {
  int columns = 1, rows = 1;
  double cellWidth = 1, cellHeight = 1;

  static CameraGrid Layout(int cameras, int width, int height);
  // Cell index under (x, y), y counted from the bottom; may be >= the camera
  // count (an empty cell) and is -1 outside the widget.
  int CellAt(int x, int y) const;
  // Lower-left corner of cell `index`, y from the bottom.
  void Origin(int index, double& x, double& y) const;
};
