#include "trackers/tracker_bar.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QFrame>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSpinBox>
#include <QTimer>
#include <QToolButton>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <QWidgetAction>
#include <algorithm>
#include <cassert>
#include <cstdio>

#include "link/tracker_check.h"
#include "link/zortk.h"
#include "trackers/rb_window.h"
#include "trackers/tracker_lists.h"
#include "trackers/tracker_views.h"
#include "view/gl_view.h"

namespace {

constexpr int kIdRole = Qt::UserRole;
constexpr int kKindRole = Qt::UserRole + 1;

// A bold title between two thin grey lines, heading a popup.
void AddMenuTitle(QMenu* menu, const QString& title) {
  auto* box = new QWidget(menu);
  auto* layout = new QVBoxLayout(box);
  layout->setContentsMargins(4, 2, 4, 2);
  layout->setSpacing(2);
  for (int i = 0; i < 3; ++i) {
    if (i == 1) {
      auto* label = new QLabel("<b>" + title + "</b>", box);
      label->setAlignment(Qt::AlignCenter);
      layout->addWidget(label);
      continue;
    }
    auto* line = new QFrame(box);
    line->setFixedHeight(1);
    line->setStyleSheet("background-color: #777;");
    layout->addWidget(line);
  }
  auto* action = new QWidgetAction(menu);
  action->setDefaultWidget(box);
  menu->addAction(action);
}

int KindOfType(uint32_t type) {
  if (type == ZOR_RIGID_TRACKER) return TrackerBar::kRigid;
  if (type == ZOR_CALIB_TRACKER) return TrackerBar::kCalibRigid;
  return TrackerBar::kFromList;
}

}  // namespace

TrackerBarDialogs TrackerBarDialogs::Interactive() {
  TrackerBarDialogs d;
  d.openFiles = [](QWidget* parent) {
    return QFileDialog::getOpenFileNames(parent, "Choose File(s) to Add to Tracker List", QString(),
                                         "Tracker Files ( *.pt *.rb )");
  };
  d.saveFile = [](QWidget* parent, const QString& filter) {
    QFileDialog dialog(parent, "Choose a filename to save under", QDir::currentPath(), filter);
    dialog.setObjectName("save file dialog");
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setOption(QFileDialog::DontConfirmOverwrite);  // the bar asks itself
    return dialog.exec() == QDialog::Accepted && !dialog.selectedFiles().isEmpty()
               ? dialog.selectedFiles().front()
               : QString();
  };
  d.message = [](QWidget* parent, int kind, const QString& caption, const QString& text) {
    switch (kind) {
      case 0: QMessageBox::information(parent, caption, text); return true;
      case 1: QMessageBox::warning(parent, caption, text); return true;
      case 2: QMessageBox::critical(parent, caption, text); return true;
    }
    QMessageBox box(QMessageBox::Question, caption, text, QMessageBox::NoButton, parent);
    QPushButton* yes = box.addButton("&Yes", QMessageBox::YesRole);
    box.addButton("&No", QMessageBox::NoRole);
    box.exec();
    return box.clickedButton() == yes;
  };
  return d;
}

TrackerBar::TrackerBar(ZOR* session, float scale, GLView* view, QWidget* parent)
    : QDockWidget("Trackers", parent),
      session_(session),
      scale_(scale),
      view_(view),
      dialogs_(TrackerBarDialogs::Interactive()) {
  assert(session_ && view_ && "trackerbar");
  setObjectName("Trackers");
  setFeatures(QDockWidget::DockWidgetClosable | QDockWidget::DockWidgetMovable |
              QDockWidget::DockWidgetFloatable);
  rbWindow_ = new RBWindow(session_, view_, this);
  connect(rbWindow_, &RBWindow::sg_Created_Rigid, this, &TrackerBar::sl_AddRigid);
  buildControls();
  refresh();
  // The rows, views and counts follow the session at the view's rate.
  auto* timer = new QTimer(this);
  connect(timer, &QTimer::timeout, this, [this] {
    if (isVisible()) refresh();
  });
  timer->start(kRefreshMs);
}

TrackerBar::~TrackerBar() = default;

void TrackerBar::buildControls() {
  auto* body = new QWidget(this);
  auto* layout = new QVBoxLayout(body);
  layout->setContentsMargins(4, 4, 4, 4);

  auto* counts = new QHBoxLayout;
  counts->addWidget(new QLabel("Max Markers", body));
  maxMarkers_ = new QSpinBox(body);
  maxMarkers_->setRange(1, kMarkerLimit);
  maxMarkers_->setValue(kDefaultMaxMarkers);
  counts->addWidget(maxMarkers_);
  counts->addStretch(1);
  counts->addWidget(new QLabel("Markers Seen: ", body));
  seenCount_ = new QLabel("0 / 0", body);
  counts->addWidget(seenCount_);
  layout->addLayout(counts);

  auto* buttons = new QHBoxLayout;
  const auto button = [&](const QString& text, const QString& tip) {
    auto* b = new QToolButton(body);
    b->setText(text);
    b->setToolTip(tip);
    b->setObjectName(text);
    buttons->addWidget(b);
    return b;
  };
  QToolButton* create = button("Create", "Add tracker(s)");
  auto* createMenu = new QMenu(create);
  const auto entry = [&](const QString& text, const QString& tip, auto slot) {
    QAction* a = createMenu->addAction(text, this, slot);
    a->setToolTip(tip);
    a->setObjectName(text);
  };
  entry("Max Markers", "Create a tracker from unused markers using IDs 0 to \"Max Markers\".",
        &TrackerBar::sl_Unused);
  entry("Selected", "Move selected markers to a new tracker.", &TrackerBar::sl_SelectionTracker);
  entry("File", "Create tracker(s) from .rb and/or .pt files.", &TrackerBar::sl_AddTracker);
  createMenu->setToolTipsVisible(true);
  create->setMenu(createMenu);
  create->setPopupMode(QToolButton::InstantPopup);
  connect(button("Delete", "Delete the selected tracker(s)"), &QToolButton::clicked, this,
          &TrackerBar::sl_RemTracker);
  connect(button("Trim", "Create a sparse marker set"), &QToolButton::clicked, this,
          &TrackerBar::sl_OptimizeTracker);
  connect(button("Save", "Save the Sparse Set"), &QToolButton::clicked, this, &TrackerBar::sl_SavePT);
  connect(button("Rigid Capture", "Create rigid tracker from selections."), &QToolButton::clicked,
          rbWindow_, &RBWindow::sl_Capture);
  buttons->addStretch(1);
  layout->addLayout(buttons);

  list_ = new QTreeWidget(body);
  list_->setColumnCount(2);
  list_->setHeaderLabels({"[type:id]", "info"});
  list_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  list_->setRootIsDecorated(false);
  list_->setFont(QFont("Helvetica"));
  list_->setContextMenuPolicy(Qt::CustomContextMenu);
  list_->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
  connect(list_, &QTreeWidget::itemSelectionChanged, this, &TrackerBar::sl_SelectionChanged);
  connect(list_, &QTreeWidget::customContextMenuRequested, this, &TrackerBar::showContextMenu);
  layout->addWidget(list_, 1);

  layout->addWidget(new QLabel("Markers", body));
  views_ = new TrackerViews(body);
  connect(views_, &TrackerViews::sg_MarkerSelected, this, &TrackerBar::sl_MarkerSelected);
  connect(views_, &TrackerViews::sg_MarkerDragSelected, this, &TrackerBar::sl_MarkerDragSelected);
  layout->addWidget(views_, 2);
  setWidget(body);
  setMinimumWidth(300);
}

int TrackerBar::maxMarkers() const { return maxMarkers_->value(); }
void TrackerBar::setMaxMarkers(int n) { maxMarkers_->setValue(n); }

int TrackerBar::rowKind(QTreeWidgetItem* row) const { return row->data(0, kKindRole).toInt(); }
int32_t TrackerBar::rowId(QTreeWidgetItem* row) const { return row->data(0, kIdRole).toInt(); }

QTreeWidgetItem* TrackerBar::rowOf(int32_t trackerId) const {
  for (int i = 0; i < list_->topLevelItemCount(); ++i)
    if (rowId(list_->topLevelItem(i)) == trackerId) return list_->topLevelItem(i);
  return nullptr;
}

// ---- rows and the session's list ----

QTreeWidgetItem* TrackerBar::addRow(const Tracker& tracker, int kind, const QString& file) {
  auto* row = new QTreeWidgetItem(list_);
  const QString label = QString::fromStdString(TrackerTypeLabel(tracker.type));
  QString text, info;
  switch (kind) {
    case kFromList:
    case kAllMarkers:
      text = QString("[PT:%1]").arg(tracker.id);
      info = QString("%1 markers").arg(tracker.markers.size());
      break;
    case kRigid: text = QString("[RB:%1]").arg(tracker.id); break;
    case kPointFile:
    case kRigidFile:
      text = file.isEmpty() ? QString("[%1:%2]").arg(label).arg(tracker.id)
                            : QString("[%1:%2] : %3").arg(label).arg(tracker.id).arg(file);
      break;
    default: text = QString("[CalibRB:%1]").arg(tracker.id); break;
  }
  if (info.isEmpty()) info = QString("%1 markers").arg(tracker.markers.size());
  row->setText(0, text);
  row->setText(1, info);
  row->setData(0, kIdRole, tracker.id);
  row->setData(0, kKindRole, kind);
  views_->add(tracker.id, text);
  return row;
}

void TrackerBar::removeRow(QTreeWidgetItem* row) {
  views_->remove(rowId(row));
  delete row;
}

// Trackers sent one at a time go unscaled, like the session's whole list.
void TrackerBar::createOnServer(Tracker& tracker) {
  if (!session_->connected()) return;
  zorScale(1.0f);
  tracker.Create();
  zorScale(session_->scale);
}

Tracker* TrackerBar::appendTracker(std::unique_ptr<Tracker> tracker, int kind, const QString& file) {
  Tracker* added = session_->AddTracker(std::move(tracker));
  addRow(*added, kind, file);
  createOnServer(*added);
  return added;
}

void TrackerBar::pointTracker(const std::vector<int32_t>& leds, int32_t id, int kind) {
  if (id == -1) id = NextFreeTrackerId(session_->trackers);
  appendTracker(std::make_unique<Tracker>(ZOR_POINT_TRACKER, id, leds), kind, QString());
}

void TrackerBar::allMarkersTracker() {
  for (int i = list_->topLevelItemCount() - 1; i >= 0; --i) {
    QTreeWidgetItem* row = list_->topLevelItem(i);
    if (rowKind(row) != kAllMarkers) continue;
    session_->RemoveTracker(rowId(row));
    removeRow(row);
  }
  const int32_t id = NextFreeTrackerId(session_->trackers);
  QTreeWidgetItem* row = addRow(
      *session_->AddTracker(std::make_unique<Tracker>(ZOR_POINT_TRACKER, id, maxMarkers())),
      kAllMarkers, QString());
  row->setText(1, QString("%1 markers").arg(maxMarkers()));
  if (session_->connected()) {
    createOnServer(*session_->FindTracker(id));
    refresh();
  }
}

// Rows follow the session's list: trackers others added get a row (of the
// kind their type says), rows whose tracker went are dropped.
void TrackerBar::refresh() {
  for (int i = list_->topLevelItemCount() - 1; i >= 0; --i)
    if (!session_->FindTracker(rowId(list_->topLevelItem(i)))) removeRow(list_->topLevelItem(i));
  for (const auto& tracker : session_->trackers) {
    QTreeWidgetItem* row = rowOf(tracker->id);
    if (!row) row = addRow(*tracker, KindOfType(tracker->type), QString());
    // Others may fill a tracker after its row was made (the wand from its file).
    const QString info = QString("%1 markers").arg(tracker->markers.size());
    if (rowKind(row) != kAllMarkers && row->text(1) != info) row->setText(1, info);
  }

  // Marker views: each cell from the frame's record of that marker.
  const Selection& selection = view_->selection();
  const auto& markers = session_->markers;
  for (TrackerView* view : views_->views()) {
    const Tracker* tracker = session_->FindTracker(view->trackerId());
    const size_t count = tracker ? tracker->markers.size() : 0;
    states_.assign(count, GridView::kUnseen);
    int seenNow = 0;
    for (size_t i = 0; i < markers.size(); ++i) {
      if ((markers[i].id >> 12) != view->trackerId()) continue;
      const size_t index = size_t(markers[i].id & 0xfff);
      if (index >= count) continue;
      uint8_t state = 0;
      if (markers[i].cond > 0) state |= GridView::kSeen, ++seenNow;
      if (i < seen_.size() && seen_[i]) state |= GridView::kSeenBefore;
      if (selection.MarkerSelected(int(i))) state |= GridView::kSelected;
      states_[index] = state;
    }
    view->grid()->setStates(states_);
    view->setCounts(seenNow, int(count));
  }
  updateSeenLabel();
}

// An entry whose marker changed (trackers were re-made, so the frame's
// layout moved) starts unseen: a flag never passes to another marker.
void TrackerBar::noteFrame() {
  const auto& markers = session_->markers;
  if (seen_.size() != markers.size()) seen_.assign(markers.size(), 0);
  seenIds_.resize(markers.size(), -1);
  for (size_t i = 0; i < markers.size(); ++i) {
    if (seenIds_[i] != markers[i].id) seenIds_[i] = markers[i].id, seen_[i] = 0;
    if (markers[i].cond > 0) seen_[i] = 1;
  }
  rbWindow_->addFrame();
}

void TrackerBar::updateSeenLabel() {
  const auto seen = std::count(seen_.begin(), seen_.end(), char(1));
  const QString text = QString("%1 / %2").arg(seen).arg(seen_.size());
  if (seenCount_->text() != text) seenCount_->setText(text);
}

int TrackerBar::frameIndexOf(int32_t markerId) const {
  const auto& markers = session_->markers;
  for (size_t i = 0; i < markers.size(); ++i)
    if (markers[i].id == markerId) return int(i);
  return -1;
}

// ---- creating ----

void TrackerBar::sl_Unused() {
  bool haveAll = false;
  for (int i = 0; i < list_->topLevelItemCount(); ++i)
    haveAll = haveAll || rowKind(list_->topLevelItem(i)) == kAllMarkers;
  if (session_->trackers.empty() || haveAll) {
    allMarkersTracker();
    return;
  }
  pointTracker(UnusedLeds(session_->trackers, maxMarkers()), -1, kFromList);
}

// The selected markers move: they leave the point trackers they were in.
void TrackerBar::sl_SelectionTracker() {
  const std::vector<int32_t> ids = MarkerIdsAt(view_->selection().AllMarkers(), session_->markers);
  std::vector<int32_t> leds;
  for (int32_t id : ids)
    if (const int32_t led = LedOfMarker(session_->trackers, id); led >= 0) leds.push_back(led);
  if (leds.empty()) return;
  takeFromOtherTrackers(ids);
  view_->selection().ClearLists();
  pointTracker(leds, -1, kFromList);
  refresh();
}

void TrackerBar::takeFromOtherTrackers(const std::vector<int32_t>& markerIds) {
  std::vector<Tracker*> changed;
  for (int32_t id : markerIds) {
    Tracker* tracker = session_->FindTracker(id >> 12);
    if (!tracker || tracker->type != ZOR_POINT_TRACKER) continue;
    if (tracker->RemoveMarker(id & 0xfff) >= 0 &&
        std::find(changed.begin(), changed.end(), tracker) == changed.end())
      changed.push_back(tracker);
  }
  for (Tracker* tracker : changed) {
    // Renumbered and sent again: the server forgets the old marker numbers.
    for (size_t i = 0; i < tracker->markers.size(); ++i) tracker->markers[i].index = int32_t(i);
    createOnServer(*tracker);
    if (QTreeWidgetItem* row = rowOf(tracker->id))
      if (rowKind(row) == kFromList || rowKind(row) == kAllMarkers)
        row->setText(1, QString("%1 markers").arg(tracker->markers.size()));
  }
}

bool TrackerBar::addTrackerFile(const QString& fileName) {
  const QString suffix = fileName.mid(fileName.lastIndexOf('.'));
  const bool point = suffix == ".pt";
  if (!point && suffix != ".rb") return false;
  const std::string name = fileName.toStdString();
  const std::string problem = CheckTrackerFile(name);
  if (!problem.empty()) {
    dialogs_.message(this, 1, "Tracker File", QString::fromStdString(problem));
    return false;
  }
  std::printf("%s%s\n", point ? "add point tracker: " : "add rigid tracker: ", name.c_str());
  std::fflush(stdout);
  auto tracker = std::make_unique<Tracker>(point ? ZOR_POINT_TRACKER : ZOR_RIGID_TRACKER,
                                           NextFreeTrackerId(session_->trackers), name);
  tracker->name = name;
  files_ << fileName;
  appendTracker(std::move(tracker), point ? kPointFile : kRigidFile, QFileInfo(fileName).fileName());
  return true;
}

void TrackerBar::sl_AddTracker() {
  for (const QString& file : dialogs_.openFiles(this)) addTrackerFile(file);
}

void TrackerBar::sl_AddRigid() {
  const std::vector<TrackerMarker>& markers = rbWindow_->captured();
  if (markers.empty()) return;
  const int32_t id = NextFreeTrackerId(session_->trackers);
  auto tracker = std::make_unique<Tracker>(ZOR_RIGID_TRACKER, id, markers, 1.0f);
  view_->selection().ClearLists();
  appendTracker(std::move(tracker), kRigid, QString());
  refresh();
  emit sg_TrackerCreated();
}

// ---- changing and removing ----

void TrackerBar::sl_RemTracker() {
  for (QTreeWidgetItem* row : list_->selectedItems()) {
    const int kind = rowKind(row);
    const int32_t id = rowId(row);
    if (kind == kPointFile || kind == kRigidFile)
      if (const Tracker* t = session_->FindTracker(id)) files_.removeAll(QString::fromStdString(t->name));
    session_->RemoveTracker(id);
    removeRow(row);
  }
  seen_.assign(seen_.size(), 0);
  refresh();
}

void TrackerBar::sl_OptimizeTracker() {
  session_->Flush();
  std::vector<int32_t> frameIds;
  for (const ZORMarker& m : session_->markers) frameIds.push_back(m.id);
  for (QTreeWidgetItem* row : list_->selectedItems()) {
    const int kind = rowKind(row);
    if (kind == kRigid || kind == kRigidFile || kind == kCalibRigid) continue;
    const int32_t id = rowId(row);
    const Tracker* tracker = session_->FindTracker(id);
    if (!tracker) continue;
    const std::vector<int32_t> keep = SeenLeds(*tracker, seen_, frameIds);
    if (kind == kPointFile) files_.removeAll(QString::fromStdString(tracker->name));
    session_->RemoveTracker(id);
    removeRow(row);
    pointTracker(keep, id, kFromList);
  }
  seen_.assign(seen_.size(), 0);
  session_->Flush();
  refresh();
}

void TrackerBar::sl_UpdateTrackers() {
  if (session_->connected()) {
    if (session_->trackers.empty())
      allMarkersTracker();
    else
      session_->CreateTrackers();
  }
  refresh();
  emit sg_TrackerCreated();
}

// ---- saving ----

void TrackerBar::sl_SavePT() {
  const QList<QTreeWidgetItem*> rows = list_->selectedItems();
  if (rows.size() != 1) {
    dialogs_.message(this, 1, "Save Tracker",
                     "Select exactly one Tracker from the List before hitting \"save\".");
    return;
  }
  const int kind = rowKind(rows.front());
  QString extension;
  if (kind == kRigid || kind == kRigidFile)
    extension = ".rb";
  else if (kind == kFromList || kind == kAllMarkers)
    extension = ".pt";
  else
    return;
  QString file = dialogs_.saveFile(this, QString("tracker (*%1)").arg(extension));
  if (file.isEmpty()) return;
  if (QFileInfo(file).suffix().isEmpty()) file += extension;
  std::printf("saving file: %s\n", file.toStdString().c_str());
  std::fflush(stdout);
  const QFileInfo info(file);
  if (info.exists()) {
    if (!info.isWritable()) {
      dialogs_.message(this, 2, "File Error",
                       QString("Could not open\n%1\ncheck file and directory permissions").arg(file));
      return;
    }
    if (!dialogs_.message(this, 3, "Overwrite File?",
                          QString("A file called %1 already exists.Do you want to overwrite it?")
                              .arg(file)))
      return;
  }
  const Tracker* tracker = session_->FindTracker(rowId(rows.front()));
  if (!tracker || !tracker->Write(file.toStdString(), 1.0f)) return;
  dialogs_.message(this, 0, "Saved Point File",
                   QString("The following ledIDs were saved to %1: \n\n%2")
                       .arg(file, QString::fromStdString(SavedLedsText(*tracker))));
}

// ---- selection and menus ----

void TrackerBar::sl_SelectionChanged() {
  // A selected rigid row selects its body in the 3D view, so the rings can
  // be put on it.
  const QList<QTreeWidgetItem*> rows = list_->selectedItems();
  if (rows.size() != 1) return;
  const int kind = rowKind(rows.front());
  if (kind != kRigid && kind != kRigidFile) return;
  const int32_t id = rowId(rows.front());
  Selection& selection = view_->selection();
  for (size_t i = 0; i < session_->rigids.size(); ++i) {
    if (session_->rigids[i].id != id) continue;
    selection.rigids = {int(i)};
    Pose pose;
    std::copy(session_->rigids[i].pose, session_->rigids[i].pose + 7, pose.v);
    view_->manipulator().Attach(pose, view_->PositionScale());
    view_->update();
    break;
  }
}

void TrackerBar::sl_MarkerSelected(int id) {
  const int index = frameIndexOf(id);
  if (index < 0) return;
  view_->selection().ToggleMarker(index);
  view_->update();
  refresh();
}

void TrackerBar::sl_MarkerDragSelected(int id) {
  const int index = frameIndexOf(id);
  if (index < 0) return;
  view_->selection().AddDragMarker(index);
  view_->update();
  refresh();
}

void TrackerBar::sl_ShowRigid() {
  sl_SelectionChanged();
  if (!rbWindow_->editing()) rbWindow_->sl_Edit();
}

QMenu* TrackerBar::contextMenu() {
  delete contextMenu_;
  contextMenu_ = new QMenu(this);
  QMenu* menu = contextMenu_;
  const QList<QTreeWidgetItem*> rows = list_->selectedItems();
  if (rows.isEmpty()) {
    AddMenuTitle(menu, "Create");
    menu->addAction("max markers", this, &TrackerBar::sl_Unused);
    menu->addAction("selected", this, &TrackerBar::sl_SelectionTracker);
    menu->addAction("file", this, &TrackerBar::sl_AddTracker);
    if (rigidTools_) menu->addAction("rigid capture", rbWindow_, &RBWindow::sl_Capture);
  } else if (rows.size() > 1) {
    AddMenuTitle(menu, "Edit");
    menu->addAction("delete", this, &TrackerBar::sl_RemTracker);
    menu->addAction("trim", this, &TrackerBar::sl_OptimizeTracker);
  } else {
    const int kind = rowKind(rows.front());
    AddMenuTitle(menu, "Edit");
    menu->addAction("delete", this, &TrackerBar::sl_RemTracker);
    menu->addAction("save", this, &TrackerBar::sl_SavePT);
    if (kind != kRigid && kind != kRigidFile)
      menu->addAction("trim", this, &TrackerBar::sl_OptimizeTracker);
    if (rigidTools_) menu->addAction("edit", this, &TrackerBar::sl_ShowRigid);
  }
  return menu;
}

void TrackerBar::showContextMenu(const QPoint& at) {
  contextMenu()->popup(list_->viewport()->mapToGlobal(at));
}
