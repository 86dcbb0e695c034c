// OrientationBar: the dock in which the operator defines the alignment body
// (tracker 3) from its markers, edits them, saves and loads them as a rigid
// body file, chooses how the body's axes map onto the world's, and measures
// how steady the markers are while the body stands still (the jitter test,
// whose error radii fill the table's last column).
#pragma once

#include <QDockWidget>
#include <QElapsedTimer>
#include <array>
#include <functional>
#include <string>
#include <vector>

#include "calib/jitter.h"
#include "calib/orientation_files.h"
#include "zorsock/geometry.h"

class QComboBox;
class QLabel;
class QLineEdit;
class MyTable;
class ZOR;

class OrientationBar : public QDockWidget {
  Q_OBJECT

 public:
  static constexpr int32_t kBodyTrackerId = 3;
  enum Column { kName = 0, kX = 1, kY = 2, kZ = 3, kNumber = 4, kErrorRadius = 5, kColumns = 6 };

  // `session` gives the frames the jitter test collects from.
  OrientationBar(QWidget* parent, ZOR* session);

  const std::vector<AlignBodyMarker>& markers() const { return markers_; }
  // Replaces the body's markers and rebuilds the table.
  void setMarkers(const std::vector<AlignBodyMarker>& markers);
  MyTable* table() const { return table_; }
  QComboBox* axisBox(int i) const { return axes_[i]; }
  QLineEdit* countField() const { return count_; }
  QLabel* timeLabel() const { return time_; }
  bool testing() const { return jitter_.running(); }
  // The view orientation the axes give (column-major); onOrientation is
  // called whenever it changes.
  const std::array<float, 16>& orientation() const { return orientation_; }
  std::function<void()> onOrientation;
  // File dialogs; replaceable so that nothing blocks in tests. Empty:
  // cancelled.
  std::function<QString()> chooseSaveFile, chooseLoadFile;
  std::function<bool(const QString& file)> confirmOverwrite;

  // Called for every frame while the window runs.
  void processFrame();

  // ".default.sav" in HOME: the marker count and the three axes.
  static std::string defaultsFileName();
  void loadDefaults(const std::string& fileName);
  bool saveDefaults(const std::string& fileName) const;
  // The rigid body file lines "id, x y z".
  bool saveBody(const std::string& fileName) const;
  bool loadBody(const std::string& fileName);

 signals:
  void sg_CreateRB();
  void sg_EnableRB();

 public slots:
  void sl_ValueChanged(int row, int column);
  // False when two axes are not perpendicular (nothing changes then).
  bool sl_Transform(int = 0);
  void sl_Test();
  void sl_CreateRB();
  void sl_MarkerCount();
  void sl_Load();
  void sl_Save();

 private:
  void fillTable();
  void showElapsed();

  ZOR* session_;
  std::vector<AlignBodyMarker> markers_;
  std::array<float, 16> orientation_ = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  JitterTest jitter_;
  QElapsedTimer testClock_;
  bool filling_ = false;  // the table is being rebuilt: no edits to take
  MyTable* table_ = nullptr;
  QLineEdit* count_ = nullptr;
  QComboBox* axes_[3] = {};
  QLabel* time_ = nullptr;
};
