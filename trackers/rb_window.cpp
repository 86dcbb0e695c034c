#include "trackers/rb_window.h"

#include <QDateTime>
#include <QDir>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>
#include <Eigen/Geometry>
#include <cstdio>

#include "link/zortk.h"
#include "trackers/tracker_lists.h"
#include "view/gl_view.h"

RBWindow::RBWindow(ZOR* session, GLView* view, QWidget* parent)
    : QWidget(parent, Qt::Tool), session_(session), view_(view) {
  setWindowTitle("Rigid Body");
  auto* layout = new QVBoxLayout(this);
  auto* help = new QLabel(
      "Rigid Capture: select 3 or more markers of one body in the 3D view and press "
      "\"Rigid Capture\". The markers are followed for " +
          QString::number(RigidCapture::kFramesWanted) +
          " frames; the first selected marker becomes the origin of the body's frame. The "
          "definition is written to the current folder as rigid-<date>-<time>.rb and the new "
          "rigid tracker appears in the tracker list.\n"
          "Edit: select one rigid body, turn it with the rings, then \"apply\".",
      this);
  help->setWordWrap(true);
  status_ = new QLabel("idle", this);
  status_->setObjectName("status");
  status_->setWordWrap(true);
  status_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  cancel_ = new QPushButton("cancel", this);
  reset_ = new QPushButton("reset", this);
  apply_ = new QPushButton("apply", this);
  connect(cancel_, &QPushButton::clicked, this, &RBWindow::sl_Cancel);
  connect(reset_, &QPushButton::clicked, this, &RBWindow::sl_Reset);
  connect(apply_, &QPushButton::clicked, this, &RBWindow::sl_Apply);
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(cancel_);
  buttons->addWidget(reset_);
  buttons->addWidget(apply_);
  layout->addWidget(help);
  layout->addWidget(status_);
  layout->addLayout(buttons);
  resize(360, 200);
}

void RBWindow::say(const QString& text) { status_->setText(text); }

// First shown beside the tracker dock, over the 3D view, not on the list.
void RBWindow::showBesideParent() {
  if (!isVisible() && parentWidget())
    move(parentWidget()->mapToGlobal(QPoint(parentWidget()->width() + 8, 0)));
  show();
  raise();
}

// Starts a capture from the view's selection, or ends one early.
void RBWindow::sl_Capture() {
  if (capturing_) {
    capturing_ = 0;
    say("capture stopped");
    return;
  }
  capture_.Start(MarkerIdsAt(view_->selection().AllMarkers(), session_->markers));
  captured_.clear();
  capturedFile_.clear();
  showBesideParent();
  if (capture_.markerSlots().size() < 3) {  // nothing to wait for
    finishCapture();
    return;
  }
  capturing_ = 1;
  say(QString("capturing %1 markers...").arg(capture_.markerSlots().size()));
}

void RBWindow::addFrame() {
  if (!capturing_) return;
  capture_.AddFrame(session_->markers, session_->scale);
  if (capture_.Enough()) finishCapture();
}

void RBWindow::finishCapture() {
  capturing_ = 0;
  std::string message;
  const std::vector<Eigen::Vector3d> positions = capture_.Finish(&message);
  if (positions.empty()) {
    std::fprintf(stderr, "%s\n", message.c_str());
    say(QString::fromStdString(message));
    return;
  }
  for (size_t i = 0; i < positions.size(); ++i) {
    const Eigen::Vector3f p = positions[i].cast<float>();
    captured_.push_back({int32_t(i), LedOfMarker(session_->trackers, capture_.markerSlots()[i].id), {p.x(), p.y(), p.z()}});
  }
  const QString folder = folder_.isEmpty() ? QDir::currentPath() : folder_;
  const QString file = QDir(folder).filePath(
      "rigid-" + QDateTime::currentDateTime().toString("yyyyMMdd-HHmmss") + ".rb");
  if (WriteDefinition(file.toStdString(), scale_, captured_)) capturedFile_ = file;
  say(QString("captured %1 markers over %2 frames%3")
          .arg(captured_.size())
          .arg(capture_.usedFrames())
          .arg(capturedFile_.isEmpty() ? QString() : "\nwritten to " + capturedFile_));
  emit sg_Created_Rigid();
}

bool RBWindow::WriteDefinition(const std::string& fileName, float scale,
                               const std::vector<TrackerMarker>& markers) {
  std::vector<Eigen::Vector3d> positions;
  for (const TrackerMarker& m : markers)
    if (m.position.size() >= 3)
      positions.emplace_back(m.position[0], m.position[1], m.position[2]);
  std::string error;
  if (!WriteRigidFile(fileName, scale, positions, &error)) {
    std::fprintf(stderr, "error: open(%s): %s\n", fileName.c_str(), error.c_str());
    return false;
  }
  std::printf("wrote to %s\n", fileName.c_str());
  std::fflush(stdout);
  return true;
}

void RBWindow::sl_Cancel() {
  sl_Reset();
  setEditing(false);
}

// Kept for the centre-of-markers tool, which the window does not offer.
void RBWindow::sl_Centroid() {}

void RBWindow::sl_Edit() { setEditing(!editing_); }

// Editing shows the rings; afterwards the view's own choice comes back.
void RBWindow::setEditing(bool on) {
  if (on && !editing_) ringsBefore_ = view_->draw.manipulator;
  if (on)
    view_->draw.manipulator = true;
  else if (editing_)
    view_->draw.manipulator = ringsBefore_;
  editing_ = on;
  if (on) {
    showBesideParent();
    say("turn the rigid body with the rings, then apply");
  }
  view_->update();
}

// Forgets the turns so far: the rings start again from the body's pose.
void RBWindow::sl_Reset() {
  Manipulator& rings = view_->manipulator();
  if (rings.attached()) rings.Attach(rings.start, view_->PositionScale());
  view_->update();
}

// The layout is turned so that the body reports the orientation the rings
// show: with R the body's orientation when the rings were attached and R' the
// turned one, every local position p becomes R'^-1 R p (same LEDs, same
// place in the room, new body frame).
void RBWindow::sl_Apply() {
  Manipulator& rings = view_->manipulator();
  const auto& picked = view_->selection().rigids;
  if (picked.size() != 1 || !rings.attached() || !rings.active) return;
  if (size_t(picked[0]) >= session_->rigids.size()) return;
  const int32_t id = session_->rigids[size_t(picked[0])].id;
  const Pose now = rings.CurrentPose();
  const Eigen::Quaternionf start(rings.start[3], rings.start[4], rings.start[5], rings.start[6]);
  const Eigen::Quaternionf turned(now[3], now[4], now[5], now[6]);
  const Eigen::Quaternionf q = (turned.conjugate() * start).normalized();
  Pose turn;
  turn[3] = q.w(), turn[4] = q.x(), turn[5] = q.y(), turn[6] = q.z();
  float matrix[16];
  convert_pm(turn.data(), matrix);
  for (auto& tracker : session_->trackers) {
    if (tracker->type != ZOR_RIGID_TRACKER || tracker->id != id) continue;
    for (TrackerMarker& m : tracker->markers) {
      if (m.position.size() < 3) continue;
      float out[3];
      mult_mv3_v3(matrix, m.position.data(), out);
      std::copy(out, out + 3, m.position.begin());
    }
  }
  if (session_->connected()) {
    view_->selection().ClearLists();
    rings.Detach();
    session_->CreateTrackers();
  }
  std::printf("rigid body transform applied.\n");
  std::fflush(stdout);
  setEditing(false);
  say("rigid body transform applied.");
}
