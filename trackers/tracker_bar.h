// TrackerBar: the "Trackers" dock. It lists the session's trackers, creates
// point trackers from the LEDs no tracker uses, from the selected markers or
// from .pt/.rb files, deletes them, trims point trackers to the markers seen
// since the last trim, saves one to a file, and hosts the marker views and
// the rigid body window. It never owns a tracker: it works on the session's
// list, and follows that list whoever changes it.
#pragma once

#include <QDockWidget>
#include <QStringList>
#include <functional>
#include <memory>
#include <vector>

#include "link/tracker.h"

class GLView;
class QLabel;
class QMenu;
class QSpinBox;
class QToolButton;
class QTreeWidget;
class QTreeWidgetItem;
class RBWindow;
class TrackerViews;
class ZOR;

// The questions the bar asks; tests answer them instead of a person.
struct TrackerBarDialogs {
  std::function<QStringList(QWidget*)> openFiles;                       // "Load Tracker"
  std::function<QString(QWidget*, const QString& filter)> saveFile;     // empty: cancelled
  // kind: 0 information, 1 warning, 2 critical, 3 yes/no question (true: yes)
  std::function<bool(QWidget*, int kind, const QString& caption, const QString& text)> message;
  static TrackerBarDialogs Interactive();
};

class TrackerBar : public QDockWidget {
  Q_OBJECT

 public:
  // Where a row's tracker came from.
  enum RowKind {
    kFromList = 0, kRigid = 1, kPointFile = 2, kRigidFile = 3, kAllMarkers = 4, kCalibRigid = 5
  };
  static constexpr int kDefaultMaxMarkers = 128;
  static constexpr int kMarkerLimit = 4096;  // markers a tracker can carry
  static constexpr int kRefreshMs = 16;

  TrackerBar(ZOR* session, float scale, GLView* view, QWidget* parent = nullptr);
  ~TrackerBar() override;

  void setDialogs(TrackerBarDialogs dialogs) { dialogs_ = std::move(dialogs); }
  int maxMarkers() const;
  void setMaxMarkers(int n);
  // Enables "rigid capture" and "edit" in the context menu.
  void setRigidTools(bool on) { rigidTools_ = on; }

  // Every delivered frame: marks the markers seen and feeds a rigid capture.
  void noteFrame();
  // Rows follow the session's list; the marker views and counts the frame.
  void refresh();

  QTreeWidget* list() const { return list_; }
  TrackerViews* markerViews() const { return views_; }
  RBWindow* rigidWindow() const { return rbWindow_; }
  QLabel* seenLabel() const { return seenCount_; }
  const std::vector<char>& seenSet() const { return seen_; }
  const QStringList& trackerFiles() const { return files_; }
  // The context menu for the list's current selection (the caller shows it).
  QMenu* contextMenu();
  int rowKind(QTreeWidgetItem* row) const;
  int32_t rowId(QTreeWidgetItem* row) const;
  QTreeWidgetItem* rowOf(int32_t trackerId) const;
  // Loads one tracker file as a new tracker (as "Create"/"File" does); false
  // when the file is refused.
  bool addTrackerFile(const QString& fileName);

 public slots:
  void sl_SavePT();
  void sl_AddTracker();
  void sl_RemTracker();
  void sl_UpdateTrackers();
  void sl_OptimizeTracker();
  void sl_Unused();
  void sl_SelectionTracker();
  void sl_SelectionChanged();
  void sl_MarkerSelected(int id);
  void sl_MarkerDragSelected(int id);
  void sl_ShowRigid();
  void sl_AddRigid();

 signals:
  void sg_TrackerCreated();

 private:
  void buildControls();
  void showContextMenu(const QPoint& at);
  void allMarkersTracker();
  void pointTracker(const std::vector<int32_t>& leds, int32_t id, int kind);
  Tracker* appendTracker(std::unique_ptr<Tracker> tracker, int kind, const QString& file);
  QTreeWidgetItem* addRow(const Tracker& tracker, int kind, const QString& file);
  void removeRow(QTreeWidgetItem* row);
  void createOnServer(Tracker& tracker);
  void takeFromOtherTrackers(const std::vector<int32_t>& markerIds);
  int frameIndexOf(int32_t markerId) const;
  void updateSeenLabel();

  ZOR* session_;
  float scale_;
  GLView* view_;
  TrackerBarDialogs dialogs_;
  QSpinBox* maxMarkers_ = nullptr;
  QLabel* seenCount_ = nullptr;
  QTreeWidget* list_ = nullptr;
  TrackerViews* views_ = nullptr;
  RBWindow* rbWindow_ = nullptr;
  QMenu* contextMenu_ = nullptr;
  std::vector<char> seen_;
  std::vector<int32_t> seenIds_;  // the marker each seen_ entry belongs to
  QStringList files_;
  bool rigidTools_ = true;
  std::vector<uint8_t> states_;  // scratch for the marker views
};
