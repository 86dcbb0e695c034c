// Alignment as an operator runs it in the window against a real zord started
// blank. After a calibration the wand rests at three corners of the alignment
// frame lying on the floor and the window takes them by itself; markers picked
// with the mouse, and the frame as a rigid body, then give the same room
// frame. Checked against the simulation's truth. Heavy (SERIAL).
#include <QLabel>
#include <QTest>
#include <iostream>
#include <fstream>

#include "app/calibration_zord_support.h"
#include "calib/orientation_bar.h"
#include "widgets/my_table.h"
#include "view/gl_view.h"

namespace {

using nlohmann::json;
using zortest::Control;
using zortest::DataPath;
using zortest::RunUntil;
using Eigen::Vector3d;

using zortest::Rest;
using zortest::Truth;
constexpr int kOrigin = zortest::kFrameOrigin, kOnX = zortest::kFrameOnX, kOnZ = zortest::kFrameOnZ;

class AlignmentZordTest : public zortest::CalibrationZordTest {
 protected:
  // Mean shown position (mm) of marker `id` over a few dozen ticks.
  Vector3d MeanMarker(CalibMainWindow& window, int32_t id) {
    Vector3d sum = Vector3d::Zero();
    int seen = 0;
    for (int tick = 0; tick < 40; ++tick) {
      Frames(window, 1);
      for (const ZORMarker& m : window.session().markers)
        if (m.id == id && m.cond > 0) sum += Vector3d(m.x, m.y, m.z), ++seen;
    }
    EXPECT_GT(seen, 20) << id;
    return sum / std::max(seen, 1) / window.session().scale;
  }
  // Index of the seen marker `id` in the current frame, -1 if none.
  static int MarkerIndex(const CalibMainWindow& window, int32_t id) {
    const auto& markers = window.session().markers;
    for (size_t i = 0; i < markers.size(); ++i)
      if (markers[i].id == id && markers[i].cond > 0) return static_cast<int>(i);
    return -1;
  }
  void Click(CalibMainWindow& window, int32_t id) {
    GLView* view = window.view();
    int index = -1;
    ASSERT_TRUE(RunUntil([&] { return (index = MarkerIndex(window, id)) >= 0; }, 5000));
    const ZORMarker& m = window.session().markers[index];
    const float s = view->PositionScale();
    double x, y, z;
    ASSERT_TRUE(view->camera().Project(Vec3(m.x * s, m.y * s, m.z * s), x, y, z));
    const qreal ratio = view->devicePixelRatioF();
    QTest::mouseClick(view, Qt::LeftButton, {},
                      QPoint(qRound(x / ratio), qRound((view->pixelHeight() - y) / ratio)));
    QTest::qWait(300);  // not a double click
  }
  // Heights (y) of the cameras as the window shows them.
  static std::vector<float> CameraHeights(const CalibMainWindow& window) {
    std::vector<float> heights;
    for (const ZORCamera& c : window.session().cameras)
      if (c.cond > 0) heights.push_back(c.pose[1]);
    return heights;
  }
  // After a save of the wand alignment on the frame's corner, X arm and Z arm
  // the server reports the frame: corner at the origin, X arm on +X, the Z
  // arm on the +Z side, every LED on the floor, the cameras above it and
  // where the truth has them.
  void ExpectRoomOnTheFrame(CalibMainWindow& window, const std::string& address, const Truth& truth) {
    ASSERT_NO_FATAL_FAILURE(Settle(window, address));
    const Vector3d origin = MeanMarker(window, kOrigin);
    EXPECT_LT(origin.norm(), 1.0) << origin.transpose();
    const Vector3d onX = MeanMarker(window, kOnX), onZ = MeanMarker(window, kOnZ);
    EXPECT_GT(onX.x(), 690);
    EXPECT_LT(Eigen::Vector2d(onX.y(), onX.z()).norm(), 2.0) << onX.transpose();
    EXPECT_GT(onZ.z(), 490);
    for (int id = kOrigin; id <= kOnZ; ++id) EXPECT_NEAR(MeanMarker(window, id).y(), 0.0, 2.0) << id;
    ExpectCamerasOnTruth(window, truth, 10.0);
  }
  void Save(CalibMainWindow& window) {
    testing::internal::CaptureStdout();
    window.entry(CalibMainWindow::kSave)->trigger();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "saved\n");
    EXPECT_FALSE(Calib(window).aligning);
  }
};

TEST_F(AlignmentZordTest, WandMarkersAndFrameAllPlaceTheRoomOnTheAlignmentFrame) {
  zortest::TempDir dir;
  const std::string truthFile = dir.File("truth.json");
  auto zord = StartZord({"--truth-out", truthFile});
  auto window = OpenWindow(zord->address(), false);
  window->resize(1000, 800);
  ASSERT_NO_FATAL_FAILURE(Connect(*window));
  ASSERT_NO_FATAL_FAILURE(CaptureWand(*window, 8));
  ASSERT_NO_FATAL_FAILURE(Calibrate(*window));
  CalibSession& calib = Calib(*window);

  const Truth truth(truthFile);
  const auto& led = truth.led;

  // Kind 3: the wand rests at the frame's corner, then on its X arm, then on
  // its Z arm, waved in between; the window takes each place by itself.
  window->entry(CalibMainWindow::kAlignWand)->trigger();
  window->sl_Align();
  ASSERT_TRUE(calib.aligning);
  for (int corner : {kOrigin, kOnX, kOnZ}) {
    Rest(zord->address(), led.at(corner));
    const int before = calib.alignPointCount();
    ASSERT_TRUE(RunUntil([&] { return calib.alignPointCount() == before + 1; }, 30000)) << corner;
    if (corner == kOnX) Shot(*window, "alignment-wand.png");
    zortest::Wave(zord->address());
    ASSERT_NO_FATAL_FAILURE(Frames(*window, 200));
  }
  ASSERT_TRUE(RunUntil([&] { return calib.alignIndices.empty(); }, 20000));  // computed
  Save(*window);
  ASSERT_NO_FATAL_FAILURE(ExpectRoomOnTheFrame(*window, zord->address(), truth));
  Rest(zord->address(), led.at(kOrigin));
  ASSERT_NO_FATAL_FAILURE(Settle(*window, zord->address()));
  for (const ZORRigid& r : window->session().rigids) {
    if (r.id != CalibSession::kWandTrackerId) continue;
    EXPECT_LT(Vector3d(r.pose[0], r.pose[1], r.pose[2]).norm() / calib.scale, 1.0);
  }

  // Kind 2: the same three LEDs picked with the mouse give the same frame:
  // nothing left to align. Picked the other way round (X towards the Z arm)
  // the cameras would end below the floor: turned over by itself, and Flip
  // Up turns it upside down on request.
  Rest(zord->address(), Vector3d(2000, 1500, 2000));  // out of the way of the clicks
  ASSERT_NO_FATAL_FAILURE(Settle(*window, zord->address()));
  window->entry(CalibMainWindow::kAlignObject)->trigger();
  window->sl_Align();
  ASSERT_TRUE(calib.aligning);
  ASSERT_TRUE(window->markerSelection());
  for (int id : {kOrigin, kOnX, kOnZ}) ASSERT_NO_FATAL_FAILURE(Click(*window, id));
  ASSERT_EQ(calib.alignIndices.size(), 3u);
  const int picked[3] = {kOrigin, kOnX, kOnZ};
  for (int i = 0; i < 3; ++i) EXPECT_EQ(window->session().markers[calib.alignIndices[i]].id, picked[i]);
  ASSERT_NO_FATAL_FAILURE(Frames(*window, 20));
  EXPECT_LT(calib.pose.position().length() / calib.scale, 1.5);
  EXPECT_GT(std::abs(calib.pose[3]), std::cos(0.2 * M_PI / 180 / 2));
  std::swap(calib.alignIndices[1], calib.alignIndices[2]);
  ASSERT_NO_FATAL_FAILURE(Frames(*window, 20));
  for (float h : CameraHeights(*window)) EXPECT_GT(h, 0);
  window->sl_Flip();
  ASSERT_NO_FATAL_FAILURE(Frames(*window, 20));
  for (float h : CameraHeights(*window)) EXPECT_LT(h, 0);
  window->sl_Align();  // ends without saving
  EXPECT_FALSE(calib.aligning);

  // Kind 1: the frame as tracker 3 from its file; after Save its LEDs are
  // where the file puts them.
  window->chooseTrackerFile = [](int id) {
    EXPECT_EQ(id, CalibSession::kPointTrackerId);
    return QString::fromStdString(DataPath("align.rb"));
  };
  window->entry(CalibMainWindow::kAlignRigid)->trigger();
  window->sl_Align();
  ASSERT_TRUE(calib.aligning);
  const auto onlyTheFrame = [&] {
    const auto& rigids = window->session().rigids;
    return std::count_if(rigids.begin(), rigids.end(), [](const ZORRigid& r) { return r.cond > 0; }) == 1 &&
           std::any_of(rigids.begin(), rigids.end(), [](const ZORRigid& r) {
             return r.id == CalibSession::kPointTrackerId && r.cond > 0;
           });
  };
  ASSERT_TRUE(RunUntil(onlyTheFrame, 5000));
  ASSERT_NO_FATAL_FAILURE(Frames(*window, 50));
  Save(*window);
  ASSERT_NO_FATAL_FAILURE(Settle(*window, zord->address()));
  const std::map<int, Vector3d> file{{13, {0, 0, 0}}, {14, {300, 0, 0}}, {15, {700, 0, 0}}, {16, {0, 0, 500}}};
  for (const auto& [id, at] : file)
    EXPECT_LT((MeanMarker(*window, id) - at).norm(), 1.0) << id;
  Shot(*window, "alignment-saved.png");
  EXPECT_TRUE(boxes.isEmpty()) << boxes.join("\n").toStdString();
}

// The jitter test of the orientation bar on a body resting in a calibrated
// room: every marker's error radius is of the order of the detection noise.
TEST_F(AlignmentZordTest, JitterOfARestingBodyIsOfTheOrderOfTheNoise) {
  zortest::ZordProcess zord({"--scene", DataPath("scenes/calibrated.json")});
  ASSERT_TRUE(zord.Start()) << zord.error();
  CalibOptions options("Corvane System Calibration");
  options.server = zord.address();
  options.startMode = 2;
  options.orientation = 1;
  CalibMainWindow window(nullptr, "Corvane System Calibration", options);
  window.settingsDock()->setScanPort(zortest::FreePort());
  window.resize(1000, 800);
  window.sl_CalibMode(1);  // keep the server's calibration
  ASSERT_NO_FATAL_FAILURE(Connect(window));
  OrientationBar* bar = window.orientationBar();
  ASSERT_TRUE(bar);
  bar->chooseLoadFile = [] { return QString::fromStdString(DataPath("body.rb")); };
  bar->sl_Load();
  ASSERT_EQ(bar->markers().size(), 5u);
  Control(zord.address(), {{"cmd", "body"}, {"mode", "rest"}, {"position", {200, 1100, -300}}});

  bar->sl_Test();  // the body becomes tracker 3 and is enabled
  ASSERT_TRUE(bar->testing());
  ASSERT_NO_FATAL_FAILURE(Frames(window, 960));
  bar->sl_Test();
  EXPECT_FALSE(bar->testing());
  EXPECT_NE(bar->timeLabel()->text(), "000:00.00");
  for (int row = 0; row < 5; ++row) {
    const QString text = bar->table()->item(row, OrientationBar::kErrorRadius)->text();
    std::cout << "jitter radius of marker " << row << ": " << text.toStdString() << " mm\n";
    EXPECT_GT(text.toDouble(), 0.0) << row;
    EXPECT_LT(text.toDouble(), 0.5) << row;
  }
  Shot(window, "orientation-bar-jitter.png");
  EXPECT_TRUE(boxes.isEmpty()) << boxes.join("\n").toStdString();
}

}  // namespace
