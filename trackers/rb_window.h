// RBWindow: the rigid body window. "Rigid Capture" gathers the markers
// selected in the 3D view over a number of frames and turns them into a rigid
// body definition (written to a file and handed to the tracker bar); "edit"
// lets the operator turn a selected rigid body's marker layout with the view's
// rotation rings, and "apply" stores the turned layout and sends it again.
#pragma once

#include <QWidget>
#include <string>
#include <vector>

#include "link/tracker.h"
#include "trackers/rigid_capture.h"

class GLView;
class QLabel;
class QPushButton;
class ZOR;

class RBWindow : public QWidget {
  Q_OBJECT

 public:
  RBWindow(ZOR* session, GLView* view, QWidget* parent = nullptr);

  // One frame delivered by the session: feeds a capture in progress.
  void addFrame();
  bool capturing() const { return capturing_ != 0; }
  bool editing() const { return editing_; }
  // The markers of the last completed capture: LEDs of the selected markers
  // and their local positions in millimetres.
  const std::vector<TrackerMarker>& captured() const { return captured_; }
  // Where the last capture's definition went (empty when it was not written).
  const QString& capturedFile() const { return capturedFile_; }
  // Folder the captured definitions are written to (the current one unless set).
  void setOutputFolder(const QString& folder) { folder_ = folder; }
  const RigidCapture& capture() const { return capture_; }
  QLabel* statusLabel() const { return status_; }

  // The definition file: "s, " and 1/scale, then one "slot, x y z" line per
  // marker. Failures go to standard error as "error: open(...)".
  static bool WriteDefinition(const std::string& fileName, float scale,
                              const std::vector<TrackerMarker>& markers);

 public slots:
  void sl_Capture();
  void sl_Cancel();
  void sl_Centroid();
  void sl_Edit();
  void sl_Reset();
  void sl_Apply();

 signals:
  void sg_Created_Rigid();

 private:
  void finishCapture();
  void setEditing(bool on);
  void say(const QString& text);
  void showBesideParent();

  ZOR* session_;
  GLView* view_;
  int32_t capturing_ = 0;
  bool editing_ = false;
  bool ringsBefore_ = true;  // the view's rings switch before editing
  RigidCapture capture_;
  std::vector<TrackerMarker> captured_;
  QString capturedFile_;
  QString folder_;
  float scale_ = 1.0f;  // of the written definition
  QLabel* status_ = nullptr;
  QPushButton* cancel_ = nullptr;
  QPushButton* reset_ = nullptr;
  QPushButton* apply_ = nullptr;
};
