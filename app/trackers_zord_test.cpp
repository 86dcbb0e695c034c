// The "Trackers" dock in the window against a real zord: the all-markers
// tracker and its marker views, trim and save, a rigid body captured from
// selected markers that the server then tracks like the simulated body, the
// rotation rings turning a body's layout, and the view settings file.
#include <QApplication>
#include <QLabel>
#include <QMouseEvent>
#include <QMenu>
#include <QTreeWidget>
#include <Eigen/Geometry>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "app/calib_main_window.h"
#include "app/view_settings.h"
#include "app/window_test_support.h"
#include "trackers/rb_window.h"
#include "trackers/rigid_capture.h"
#include "trackers/tracker_bar.h"
#include "trackers/tracker_views.h"
#include "view/gl_view.h"
#include "zorsock/control.h"

namespace {

using nlohmann::json;
using zortest::DataPath;
using zortest::RunUntil;

std::string ReadText(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

class TrackersZordTest : public zortest::WindowFixture {
 protected:
  void SetUp() override {
    WindowFixture::SetUp();
    zord_ = std::make_unique<zortest::ZordProcess>(
        std::vector<std::string>{"--scene", DataPath("scenes/calibrated.json")});
    ASSERT_TRUE(zord_->Start()) << zord_->error();
    CalibOptions options("Corvane System Calibration");
    options.server = zord_->address();
    options.startMode = 2;
    window_ = std::make_unique<CalibMainWindow>(nullptr, "w", options);
    window_->sl_CalibMode(1);  // the scene's calibration: markers are reconstructed
    bar_ = window_->trackerBar();
    TrackerBarDialogs dialogs;
    dialogs.openFiles = [](QWidget*) { return QStringList(); };
    dialogs.saveFile = [this](QWidget*, const QString& filter) {
      asked_ << "save " + filter;
      return saveAnswer_;
    };
    dialogs.message = [this](QWidget*, int kind, const QString& caption, const QString& text) {
      asked_ << QString("%1 %2: %3").arg(kind).arg(caption, text);
      return overwrite_;
    };
    bar_->setDialogs(dialogs);
    bar_->rigidWindow()->setOutputFolder(QString::fromStdString(dir_.path()));
    window_->entry(CalibMainWindow::kConnect)->trigger();
    ASSERT_TRUE(window_->session().connected());
  }
  void TearDown() override {
    window_.reset();
    WindowFixture::TearDown();
  }
  json Control(const json& request) {
    std::string error;
    const std::string reply = zorControl(zord_->address(), request.dump(), &error);
    return reply.empty() ? json{} : json::parse(reply);
  }
  ZOR& session() { return window_->session(); }
  const ZORMarker* Marker(int32_t id) {
    for (const ZORMarker& m : session().markers)
      if (m.id == id) return &m;
    return nullptr;
  }
  const ZORRigid* Rigid(int32_t id) {
    for (const ZORRigid& r : session().rigids)
      if (r.id == id && r.cond > 0) return &r;
    return nullptr;
  }
  void SelectRows(std::initializer_list<int32_t> ids) {
    bar_->list()->clearSelection();
    for (int32_t id : ids) bar_->rowOf(id)->setSelected(true);
  }
  // Holds the server still and takes the last frame it sent.
  void PauseAndDrain() {
    const int32_t last = Control({{"cmd", "clock"}, {"action", "pause"}})["frame"];
    ASSERT_TRUE(RunUntil([&] { return session().lastFrame >= last; }, 5000));
  }

  zortest::TempDir dir_;
  std::unique_ptr<zortest::ZordProcess> zord_;
  std::unique_ptr<CalibMainWindow> window_;
  TrackerBar* bar_ = nullptr;
  QStringList asked_;
  QString saveAnswer_;
  bool overwrite_ = false;
};

TEST_F(TrackersZordTest, AllMarkersTrackerStreamsTrimsAndSaves) {
  // The calibration's trackers go; "Max Markers" then covers LEDs 0..31.
  bar_->list()->selectAll();
  bar_->sl_RemTracker();
  ASSERT_TRUE(session().trackers.empty());
  EXPECT_EQ(bar_->list()->topLevelItemCount(), 0);
  bar_->setMaxMarkers(32);
  bar_->sl_Unused();
  ASSERT_EQ(session().trackers.size(), 1u);
  QTreeWidgetItem* row = bar_->rowOf(0);
  ASSERT_TRUE(row);
  EXPECT_EQ(row->text(0), "[PT:0]");
  EXPECT_EQ(row->text(1), "32 markers");
  EXPECT_EQ(bar_->rowKind(row), TrackerBar::kAllMarkers);

  // The scene's 21 LEDs stream as markers 0:0 .. 0:20; the body's are seen
  // and their cells say so.
  ASSERT_TRUE(RunUntil([&] { return Marker(10) && Marker(10)->cond > 0; }, 10000));
  for (const ZORMarker& m : session().markers) EXPECT_EQ(m.id >> 12, 0);
  RunUntil([] { return false; }, 200);  // frames stream a while before the trim below
  GridView* grid = bar_->markerViews()->find(0)->grid();
  const auto seen = [&] {
    return grid->states().size() == 32u && (grid->states()[10] & GridView::kSeen);
  };
  EXPECT_TRUE(RunUntil(seen, 10000));
  ASSERT_EQ(grid->states().size(), 32u);
  EXPECT_FALSE(grid->states()[25] & (GridView::kSeen | GridView::kSeenBefore));
  EXPECT_NE(bar_->seenLabel()->text(), "0 / 0");

  // A click on a cell selects that marker in the 3D view too.
  bar_->sl_MarkerSelected(10);
  const int index10 = int(Marker(10) - session().markers.data());
  EXPECT_TRUE(window_->view()->selection().MarkerSelected(index10));
  bar_->refresh();
  EXPECT_TRUE(grid->states()[10] & GridView::kSelected);

  // "Selected" moves the selected markers (a click and a drag) to a new tracker.
  bar_->sl_MarkerDragSelected(11);
  bar_->sl_SelectionTracker();
  ASSERT_TRUE(bar_->rowOf(1));
  EXPECT_EQ(bar_->rowOf(1)->text(1), "2 markers");
  EXPECT_EQ(session().FindTracker(1)->markers[1].ledId, 11);
  EXPECT_EQ(session().FindTracker(0)->markers.size(), 30u);
  EXPECT_TRUE(RunUntil([&] { return Marker((1 << 12) | 1) && Marker((1 << 12) | 1)->cond > 0; }, 5000));

  // Trim keeps the LEDs seen since the last trim: those of the scene only.
  SelectRows({0});
  bar_->sl_OptimizeTracker();
  const Tracker* trimmed = session().FindTracker(0);
  ASSERT_TRUE(trimmed);
  EXPECT_GE(trimmed->markers.size(), 11u);
  EXPECT_LE(trimmed->markers.size(), 21u);
  for (const TrackerMarker& m : trimmed->markers) EXPECT_LT(m.ledId, 21);
  EXPECT_EQ(bar_->rowKind(bar_->rowOf(0)), TrackerBar::kFromList);
  EXPECT_EQ(std::count(bar_->seenSet().begin(), bar_->seenSet().end(), 1), 0);

  // Save: the name gets ".pt" before the overwrite question; "No" keeps the file.
  const std::string file = dir_.File("points.pt");
  std::ofstream(file) << "old\n";
  saveAnswer_ = QString::fromStdString(dir_.File("points"));
  SelectRows({0});
  bar_->sl_SavePT();
  ASSERT_EQ(asked_.size(), 2) << asked_.join("\n").toStdString();
  EXPECT_EQ(asked_[0], "save tracker (*.pt)");
  EXPECT_EQ(asked_[1], "3 Overwrite File?: A file called " + QString::fromStdString(file) +
                           " already exists.Do you want to overwrite it?");
  EXPECT_EQ(ReadText(file), "old\n");
  overwrite_ = true;
  asked_.clear();
  bar_->sl_SavePT();
  ASSERT_EQ(asked_.size(), 3);
  EXPECT_TRUE(asked_[2].startsWith("0 Saved Point File: The following ledIDs were saved to " +
                                   QString::fromStdString(file) + ": \n\n"));
  EXPECT_EQ(Tracker(ZOR_POINT_TRACKER, 7, file).markers.size(), trimmed->markers.size());

  // Loaded back it is a file row; "save" on it asks nothing.
  ASSERT_TRUE(bar_->addTrackerFile(QString::fromStdString(file)));
  QTreeWidgetItem* loaded = bar_->rowOf(2);
  ASSERT_TRUE(loaded);
  EXPECT_EQ(loaded->text(0), "[PT:2] : points.pt");
  asked_.clear();
  SelectRows({2});
  bar_->sl_SavePT();
  EXPECT_TRUE(asked_.isEmpty());
  // Rigid rows are never offered "trim"; a point row is.
  QStringList entries;
  for (QAction* a : bar_->contextMenu()->actions()) entries << a->text();
  EXPECT_EQ(entries.join(","), ",delete,save,trim,edit");

  // A file the server would refuse is refused here, naming the line.
  std::ofstream(dir_.File("bad.rb")) << "1, 0 0 0\n-4, 1 2 3\n";
  asked_.clear();
  EXPECT_FALSE(bar_->addTrackerFile(QString::fromStdString(dir_.File("bad.rb"))));
  ASSERT_EQ(asked_.size(), 1);
  EXPECT_EQ(asked_[0], "1 Tracker File: " + QString::fromStdString(dir_.File("bad.rb")) +
                           ":2: negative LED id -4");
  EXPECT_EQ(session().trackers.size(), 3u);
  EXPECT_TRUE(session().connected());
}

// The rigid body's pose as the client sees it (mm) and the simulation's truth.
Eigen::Isometry3d PoseOf(const float* p, double toMm) {
  Eigen::Isometry3d t = Eigen::Isometry3d::Identity();
  t.linear() = Eigen::Quaterniond(p[3], p[4], p[5], p[6]).normalized().toRotationMatrix();
  t.translation() = Eigen::Vector3d(p[0], p[1], p[2]) * toMm;
  return t;
}
Eigen::Isometry3d PoseOf(const json& p) {
  const float v[7] = {p[0], p[1], p[2], p[3], p[4], p[5], p[6]};
  return PoseOf(v, 1.0);
}

TEST_F(TrackersZordTest, CapturedRigidBodyFollowsTheTruthSavesAndTurnsWithTheRings) {
  // The body held still away from the wand, the server paused, and a box
  // dragged (middle button) around the body's five LEDs (8..12, of tracker 0).
  Control({{"cmd", "body"}, {"mode", "rest"}, {"position", {1000, 1500, -1000}},
           {"rotation", {1, 0, 0, 0}}});
  ASSERT_TRUE(RunUntil(
      [&] {
        for (int led = 8; led <= 12; ++led)
          if (!Marker(led) || Marker(led)->cond <= 0) return false;
        return true;
      },
      10000));
  PauseAndDrain();
  GLView* view = window_->view();
  view->repaint();
  const auto toScreen = [&](const ZORMarker& m) {
    const float s = view->PositionScale();
    double x, y, z;
    EXPECT_TRUE(view->camera().Project(Vec3(m.x * s, m.y * s, m.z * s), x, y, z));
    const qreal ratio = view->devicePixelRatioF();
    return QPoint(qRound(x / ratio), qRound((view->pixelHeight() - y) / ratio));
  };
  QRect box;
  for (int led = 8; led <= 12; ++led) box |= QRect(toScreen(*Marker(led)), QSize(1, 1));
  box.adjust(-6, -6, 6, 6);
  ASSERT_TRUE(view->rect().contains(box)) << box.x() << "," << box.y();
  for (const ZORMarker& m : session().markers) {
    const bool other = m.cond > 0 && (m.id < 8 || m.id > 12);
    ASSERT_FALSE(other && box.contains(toScreen(m))) << m.id;
  }
  const auto send = [&](QEvent::Type type, QPoint at, Qt::MouseButtons buttons) {
    QMouseEvent event(type, at, view->mapToGlobal(at), Qt::MiddleButton, buttons, Qt::NoModifier);
    QApplication::sendEvent(view, &event);
  };
  send(QEvent::MouseButtonPress, box.topLeft(), Qt::MiddleButton);
  send(QEvent::MouseMove, box.center(), Qt::MiddleButton);
  send(QEvent::MouseMove, box.bottomRight(), Qt::MiddleButton);
  send(QEvent::MouseButtonRelease, box.bottomRight(), Qt::NoButton);
  Selection& selection = view->selection();
  ASSERT_EQ(selection.AllMarkers().size(), 5u);
  Control({{"cmd", "clock"}, {"action", "resume"}});

  RBWindow* rb = bar_->rigidWindow();
  rb->sl_Capture();
  ASSERT_TRUE(rb->capturing());
  ASSERT_TRUE(RunUntil([&] { return !rb->capturing(); }, 10000));
  ASSERT_EQ(rb->captured().size(), 5u) << rb->statusLabel()->text().toStdString();
  const int32_t id = 4;  // after the calibration's 0..3
  QTreeWidgetItem* row = bar_->rowOf(id);
  ASSERT_TRUE(row);
  EXPECT_EQ(row->text(0), "[RB:4]");
  EXPECT_EQ(ReadText(rb->capturedFile().toStdString()).substr(0, 6), "s, 1\n0");

  // Tracked by the server: the pose keeps a fixed offset from the body's own.
  Control({{"cmd", "body"}, {"mode", "move"}});
  RunUntil([] { return false; }, 300);
  ASSERT_TRUE(RunUntil([&] { return Rigid(id) != nullptr; }, 10000));
  // Each of a few moments gives the offset between the body's pose and the
  // tracked one; they all agree with their mean.
  const double toMm = 1.0 / session().scale;
  std::vector<Eigen::Isometry3d> offsets;
  for (int round = 0; round < 4; ++round) {
    PauseAndDrain();
    const ZORRigid* rigid = Rigid(id);
    ASSERT_TRUE(rigid);
    const Eigen::Isometry3d truth = PoseOf(Control({{"cmd", "truth"}})["bodies"][0]["pose"]);
    offsets.push_back(truth.inverse() * PoseOf(rigid->pose, toMm));
    Control({{"cmd", "clock"}, {"action", "resume"}});
    RunUntil([] { return false; }, 500);
  }
  Eigen::Vector3d meanT = Eigen::Vector3d::Zero();
  Eigen::Vector4d meanQ = Eigen::Vector4d::Zero();
  for (const auto& o : offsets) {
    meanT += o.translation() / double(offsets.size());
    meanQ += Eigen::Quaterniond(o.linear()).coeffs() / double(offsets.size());
  }
  const Eigen::Quaterniond mean(meanQ.normalized());
  for (const auto& o : offsets) {
    EXPECT_LT((o.translation() - meanT).norm(), 1.0);
    EXPECT_LT(Eigen::Quaterniond(o.linear()).angularDistance(mean) * 180 / M_PI, 0.2);
  }

  // Saved from the list and read back: the geometry of data/body.rb.
  saveAnswer_ = QString::fromStdString(dir_.File("body"));
  SelectRows({id});
  bar_->sl_SavePT();
  const Tracker saved(ZOR_RIGID_TRACKER, 9, dir_.File("body.rb"));
  const Tracker reference(ZOR_RIGID_TRACKER, 9, DataPath("body.rb"));
  ASSERT_EQ(saved.markers.size(), 5u);
  std::vector<Eigen::Vector3d> from, to;
  for (const TrackerMarker& a : saved.markers) {
    for (const TrackerMarker& b : reference.markers) {
      if (a.ledId != b.ledId) continue;
      from.emplace_back(a.position[0], a.position[1], a.position[2]);
      to.emplace_back(b.position[0], b.position[1], b.position[2]);
    }
  }
  ASSERT_EQ(from.size(), 5u);
  EXPECT_LT(FitRigid(from, to).worst, 0.5);

  // "edit" puts the rings on the body; turned by 30 degrees about y and
  // applied, the layout turns and the server reports the turned orientation.
  Control({{"cmd", "body"}, {"mode", "rest"}, {"position", {0, 1100, 0}}, {"rotation", {1, 0, 0, 0}}});
  RunUntil([] { return false; }, 300);
  SelectRows({id});
  bar_->sl_ShowRigid();
  Manipulator& rings = window_->view()->manipulator();
  ASSERT_TRUE(rings.attached());
  rings.drag.fromAxisAngle(Vec3{0, 1, 0}, float(M_PI / 6));
  rings.active = true;
  const Eigen::Quaterniond turned(rings.CurrentPose()[3], rings.CurrentPose()[4],
                                  rings.CurrentPose()[5], rings.CurrentPose()[6]);
  const std::vector<float> before = session().FindTracker(id)->markers[1].position;
  testing::internal::CaptureStdout();
  rb->sl_Apply();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "rigid body transform applied.\n");
  EXPECT_TRUE(window_->view()->draw.manipulator);  // the view's own switch is back
  const std::vector<float> after = session().FindTracker(id)->markers[1].position;
  EXPECT_NEAR(Eigen::Vector3f(before.data()).norm(), Eigen::Vector3f(after.data()).norm(), 1e-3);
  EXPECT_GT((Eigen::Vector3f(before.data()) - Eigen::Vector3f(after.data())).norm(), 10);
  const auto reported = [&] {
    const ZORRigid* r = Rigid(id);
    if (!r) return 180.0;
    const Eigen::Quaterniond pose(r->pose[3], r->pose[4], r->pose[5], r->pose[6]);
    return pose.angularDistance(turned) * 180 / M_PI;
  };
  EXPECT_TRUE(RunUntil([&] { return reported() < 0.3; }, 10000)) << reported();
}

TEST(TrackersSettings, ViewSettingsComeBackAfterARestartAndBadLinesAreOnlyReported) {
  zortest::EnsureApplication();
  const std::string file = ViewSettingsFileName();
  std::remove(file.c_str());
  CalibOptions options("Corvane System Calibration");
  options.startMode = 2;
  {
    CalibMainWindow window(nullptr, "w", options);
    window.view()->draw.cameras = false;
    window.view()->draw.markerIds = true;
    window.view()->markerStore().SetBrush(2);
    window.view()->markerStore().SetFadeCount(77);
    window.trackerBar()->setMaxMarkers(300);
    window.trackerBar()->hide();
    window.resize(900, 700);
  }
  std::string text = ReadText(file);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 18);
  EXPECT_EQ(text.substr(0, 36), "configVisible: 1\ntrackersVisible: 0\n");
  {
    CalibMainWindow window(nullptr, "w", options);
    EXPECT_FALSE(window.view()->draw.cameras);
    EXPECT_TRUE(window.view()->draw.markerIds);
    EXPECT_TRUE(window.entry(CalibMainWindow::kMarkerIds)->isChecked());
    EXPECT_EQ(window.view()->markerStore().brush(), 2);
    EXPECT_EQ(window.view()->markerStore().fadeCount(), 77);
    EXPECT_EQ(window.trackerBar()->maxMarkers(), 300);
    EXPECT_TRUE(window.trackerBar()->isHidden());
    EXPECT_EQ(window.width(), 900);
    EXPECT_EQ(window.currentViewSettings().markerMax, 300);
  }
  EXPECT_EQ(ReadText(file), text);

  // Bad lines are only reported; so is a command-line tracker file that the
  // server would refuse, which is left out.
  std::ofstream(file) << "slots:\n# note\n\nSlots: 1\nfoo bar\nslots: 5\n";
  zortest::TempDir dir;
  std::ofstream(dir.File("bad.rb")) << "1, 0 0 0\n2, nan 0 0\n";
  options.rigidFile = dir.File("bad.rb");
  testing::internal::CaptureStderr();
  {
    CalibMainWindow window(nullptr, "w", options);
    EXPECT_TRUE(window.view()->draw.bySlot);
    EXPECT_EQ(window.session().FindTracker(0)->markers.size(), 128u);
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "error: " + dir.File("bad.rb") + ":2: coordinates are not finite numbers\n" +
                "unknown configuration: slots:\nunknown token: Slots: in " + file +
                "\nunknown token: foo in " + file + "\n");
}

}  // namespace
