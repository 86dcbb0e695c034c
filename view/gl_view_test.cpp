// The real view widget in a small window under X: clicks, box drags and the
// wheel go through Qt's events to the scene layer and its picking.
#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QTest>
#include <QVBoxLayout>
#include <QWheelEvent>
#include <QWidget>
#include <functional>

#include "link/zortk.h"
#include "view/aiming_view.h"
#include "view/gl_view.h"
#include "view/synthetic_scene.h"
#include "view/view_test_support.h"

namespace {

ZORMarker At(int id, float x, float y, float z) {
  ZORMarker m{};
  m.id = id;
  m.x = x, m.y = y, m.z = z;
  m.cond = 1;
  return m;
}

// A window holding the view, fed with a frame of four markers in a row
// across the middle and one above, seen from the front.
class ViewHarness : public testing::Test {
 protected:
  void SetUp() override {
    EnsureTestApp();
    window_ = std::make_unique<QWidget>();
    window_->resize(800, 600);
    auto* layout = new QVBoxLayout(window_.get());
    layout->setContentsMargins(0, 0, 0, 0);
    view_ = new GLView(window_.get());
    layout->addWidget(view_);
    session_.markers = {At(0, 0, 1000, 0), At(1, 1500, 1000, 0), At(2, -1500, 1000, 0),
                        At(3, 0, 2000, 0), At(4, 3000, 1000, 0)};
    session_.frequency = 480;
    view_->SetSession(&session_);
    ViewCamera& c = view_->camera();
    c.rotation.set(0, 0, 0);
    c.distance = 60;
    c.wantedCentre.set(0, 10, 0);
    window_->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window_.get()));
    Repaint();
  }

  void Repaint() {
    view_->update();
    QTest::qWait(30);
    QCoreApplication::processEvents();
  }

  // Where a point of the scene is drawn, in the widget's logical coordinates.
  QPoint ToScreen(const Vec3& at) {
    double x, y, z;
    EXPECT_TRUE(view_->camera().Project(at, x, y, z));
    const qreal ratio = view_->devicePixelRatioF();
    return QPoint(qRound(x / ratio), qRound((view_->pixelHeight() - y) / ratio));
  }
  QPoint OnScreen(int index) {
    const ZORMarker& m = session_.markers[index];
    const float s = view_->PositionScale();
    return ToScreen(Vec3(m.x * s, m.y * s, m.z * s));
  }

  void Wheel(QPoint at, int delta, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
    QWheelEvent event(at, view_->mapToGlobal(at), QPoint(), QPoint(0, delta), Qt::NoButton,
                      modifiers, Qt::NoScrollPhase, false);
    QApplication::sendEvent(view_, &event);
  }

  // Four cameras of a synthetic scene in the 2D view's 2 x 2 grid, camera 0 top left.
  void FourCameras(int markers) {
    SyntheticScene scene;
    scene.markers = markers;
    scene.cameras = 4;
    scene.Fill(session_, 1);
  }
  // Pixels in `area` of the view that `is` takes, after a repaint.
  int Count(const std::function<bool(QColor)>& is, QRect area) {
    Repaint();
    const QImage shot = view_->grabFramebuffer();
    area = area.intersected(shot.rect());
    int n = 0;
    for (int y = area.top(); y <= area.bottom(); ++y)
      for (int x = area.left(); x <= area.right(); ++x) n += is(shot.pixelColor(x, y));
    return n;
  }
  int Count(const std::function<bool(QColor)>& is) {
    return Count(is, QRect(0, 0, view_->pixelWidth(), view_->pixelHeight()));
  }
  // The same in a camera's cell of the 2D view's 2 x 2 grid.
  int CountInCell(int cell, const std::function<bool(QColor)>& is) {
    const int w = view_->pixelWidth() / 2, h = view_->pixelHeight() / 2;
    return Count(is, QRect((cell % 2) * w, (cell / 2) * h, w, h));
  }

  std::unique_ptr<QWidget> window_;
  GLView* view_ = nullptr;
  ZOR session_{128, 1.0f};
};

TEST_F(ViewHarness, ClickOnAMarkerSelectsItAndRecentres) {
  QSignalSpy picked(view_, &GLView::sg_MarkerSelected);
  const QPoint at = OnScreen(1);
  QTest::mouseClick(view_, Qt::LeftButton, {}, at + QPoint(2, -1));
  EXPECT_EQ(view_->selection().markers, std::vector<int>{1});
  ASSERT_EQ(picked.count(), 1);
  EXPECT_EQ(picked.at(0).at(0).toInt(), 1);
  EXPECT_NEAR(view_->camera().wantedCentre[0], 15, 1e-4);
  EXPECT_NEAR(view_->camera().wantedCentre[1], 10, 1e-4);
  Repaint();
  EXPECT_NEAR(view_->camera().centre[0], 15, 1e-4);  // the view turned to it
  // A second click (later than a double click) toggles it off again.
  QTest::qWait(250);
  QTest::mouseClick(view_, Qt::LeftButton, {}, OnScreen(1));
  EXPECT_TRUE(view_->selection().markers.empty());
  // A click on empty space selects nothing and leaves the centre.
  QTest::qWait(250);
  QTest::mouseClick(view_, Qt::LeftButton, {}, QPoint(30, 30));
  EXPECT_TRUE(view_->selection().Empty());
  EXPECT_NEAR(view_->camera().wantedCentre[0], 15, 1e-4);

  // A calibration session receives metres: markers stay where they are in the room.
  session_.scale = 0.001f;
  for (ZORMarker& m : session_.markers) m.x *= 0.001f, m.y *= 0.001f, m.z *= 0.001f;
  view_->camera().wantedCentre.set(0, 10, 0);
  Repaint();
  QTest::qWait(250);
  QTest::mouseClick(view_, Qt::LeftButton, {}, OnScreen(2) + QPoint(2, -1));
  EXPECT_EQ(view_->selection().markers, std::vector<int>{2});
  EXPECT_NEAR(view_->camera().wantedCentre[0], -15, 1e-3);
  EXPECT_NEAR(view_->camera().wantedCentre[1], 10, 1e-3);
}

TEST_F(ViewHarness, MiddleDragBoxSelectsWhatItCovers) {
  // A box around markers 0 and 1 (and not 2, 3 or 4).
  const QPoint a = OnScreen(0), b = OnScreen(1);
  const QPoint from(a.x() - 15, a.y() - 15), to(b.x() + 15, b.y() + 15);
  QTest::mousePress(view_, Qt::MiddleButton, {}, from);
  QTest::mouseMove(view_, (from + to) / 2);
  QTest::mouseMove(view_, to);
  EXPECT_EQ(view_->interaction(), SceneView::kBox);
  Repaint();  // the box is drawn while dragging
  QTest::mouseRelease(view_, Qt::MiddleButton, {}, to);
  std::vector<int> got = view_->selection().dragMarkers;
  std::sort(got.begin(), got.end());
  EXPECT_EQ(got, (std::vector<int>{0, 1}));
  EXPECT_EQ(view_->interaction(), SceneView::kIdle);

  // A plain box elsewhere replaces the selection; with Control it adds.
  const QPoint c = OnScreen(2);
  QTest::mousePress(view_, Qt::MiddleButton, Qt::ControlModifier, c - QPoint(10, 10));
  QTest::mouseRelease(view_, Qt::MiddleButton, Qt::ControlModifier, c + QPoint(10, 10));
  EXPECT_EQ(view_->selection().dragMarkers.size(), 3u);
  QTest::mousePress(view_, Qt::MiddleButton, {}, c - QPoint(10, 10));
  QTest::mouseRelease(view_, Qt::MiddleButton, {}, c + QPoint(10, 10));
  EXPECT_EQ(view_->selection().dragMarkers, std::vector<int>{2});
}

TEST_F(ViewHarness, WheelZoomsAndWithControlTowardsThePointer) {
  const float before = view_->camera().distance;
  const QPoint centre(view_->width() / 2, view_->height() / 2);
  Wheel(centre, 120);
  EXPECT_FLOAT_EQ(view_->camera().distance, before / 1.5f);
  Wheel(centre, -120);
  EXPECT_FLOAT_EQ(view_->camera().distance, before);
  EXPECT_EQ(view_->mouseState().buttons, 0);  // press and release each time

  view_->camera().rotation.set(30, 0, 0);  // from above, so the pointer meets the floor plane
  Repaint();
  Wheel(OnScreen(1), 120, Qt::ControlModifier);
  EXPECT_GT(view_->camera().centre[0], 1);  // moved towards marker 1 at x = 15
  EXPECT_LT(view_->camera().centre[0], 15);
}

TEST_F(ViewHarness, TwoDViewClickTogglesACamera) {
  FourCameras(5);
  view_->sl_View2d();
  Repaint();
  // Four cameras in 800 x 600: 2 columns, 2 rows; top left is camera 0.
  QTest::mouseClick(view_, Qt::LeftButton, {}, QPoint(100, 100));
  EXPECT_TRUE(view_->selection().CameraSelected(0));
  QTest::mouseClick(view_, Qt::LeftButton, {}, QPoint(700, 500));
  EXPECT_TRUE(view_->selection().CameraSelected(3));
  QTest::qWait(250);
  QTest::mouseClick(view_, Qt::LeftButton, {}, QPoint(100, 100));
  EXPECT_FALSE(view_->selection().CameraSelected(0));
}

// Aiming shows the 2D view; a camera that sees nothing is framed in red, the
// others in green. Turning it off brings back the view shown before.
TEST_F(ViewHarness, AimingMarksACameraThatSeesNothing) {
  FourCameras(5);
  std::erase_if(session_.images, [](const ZORImage& im) { return im.camera == 3; });
  aiming::Set(*view_, true);
  ASSERT_TRUE(view_->view2d());
  const auto red = [](QColor c) { return c.red() > 200 && c.green() < 90; };
  const auto green = [](QColor c) { return c.green() > 180 && c.red() < 120; };
  EXPECT_GT(CountInCell(3, red), 200);
  EXPECT_EQ(CountInCell(3, green), 0);
  EXPECT_GT(CountInCell(0, green), 200);
  EXPECT_EQ(CountInCell(0, red), 0);
  aiming::Set(*view_, false);
  EXPECT_FALSE(view_->view2d() || aiming::On(*view_));
  view_->sl_View2d();
  aiming::Set(*view_, true);
  aiming::Set(*view_, false);
  EXPECT_TRUE(view_->view2d());
}

// Trails come from a buffer kept between frames: it must show the kept
// history (through the ring's wrap, broken where the marker was unseen,
// slow enough to be drawn through every few positions), fade, and forget
// what a reset dropped.
TEST_F(ViewHarness, TrailsShowTheKeptHistoryOnly) {
  MarkerStore& store = view_->markerStore();
  store.SetBrush(kBrushLines);
  store.SetMaxHistory(1000);
  const auto feed = [&](int from, int to, float y) {
    for (int i = from; i < to; ++i) {  // 3 mm a frame along x
      session_.markers = {At(0, -3000.0f + 3 * i, y, 0)};
      if (i >= 1200 && i < 1240) session_.markers[0].cond = -1;
      view_->ProcessFrame();
    }
  };
  feed(0, 1500, 1000);
  const auto lit = [&](float x, float y) {
    Repaint();
    const QImage shot = view_->grabFramebuffer();
    const float s = view_->PositionScale();
    const QPoint at = ToScreen(Vec3(x * s, y * s, 0)) * view_->devicePixelRatioF();
    for (int dy = -3; dy <= 3; ++dy) {
      if (shot.pixelColor(at.x(), at.y() + dy).green() > 100) return true;
    }
    return false;
  };
  EXPECT_FALSE(lit(-2000, 1000));  // older than the history
  EXPECT_TRUE(lit(-600, 1000));
  EXPECT_FALSE(lit(660, 1000));  // unseen
  EXPECT_TRUE(lit(1200, 1000));
  store.SetFade(true);
  store.SetFadeCount(300);
  EXPECT_FALSE(lit(-600, 1000));
  EXPECT_TRUE(lit(1200, 1000));
  store.Reset(480);
  feed(0, 300, 2000);
  EXPECT_FALSE(lit(1200, 1000));
  EXPECT_TRUE(lit(-2500, 2000));
}

// The calibration overlay over the 2D view: a ready camera's covered cell is
// filled green, a camera the solver would refuse is framed red, a moved one
// orange; nothing is drawn once the overlay is empty.
TEST_F(ViewHarness, CalibrationOverlayMarksCoverageAndMovedCameras) {
  FourCameras(0);
  view_->sl_View2d();
  CalibrationOverlay& o = view_->calibration;
  o.showCoverage = true;
  o.summary.min_frames = 10;
  o.coverage = {{0, 40, 90, 1, {0xffffffffu, 0xffffffffu}, 0.4f, 1}, {1, 3, 6, 0, {0, 0}, 0, 0}};
  o.moved = {{2, 1, 2.5f, 0.2f}};
  const auto green = [](QColor c) { return c.green() > 50 && c.green() > 2 * c.red(); };
  const auto red = [](QColor c) { return c.red() > 200 && c.green() < 110 && c.blue() > 40; };
  const auto orange = [](QColor c) { return c.red() > 200 && c.green() > 90 && c.green() < 140 && c.blue() < 30; };
  EXPECT_GT(CountInCell(0, green), 20000);  // every cell filled
  EXPECT_GT(CountInCell(1, red), 300);
  EXPECT_EQ(CountInCell(0, red), 0);
  EXPECT_GT(CountInCell(2, orange), 300);
  EXPECT_EQ(CountInCell(3, orange) + CountInCell(3, green) + CountInCell(3, red), 0);
  o = {};
  EXPECT_LT(CountInCell(0, green), 100);
  EXPECT_EQ(CountInCell(2, orange), 0);
}

// In the 3D view two calibrated cameras that shared too few wand frames are
// linked by a red line; with enough frames the line is no longer red.
TEST_F(ViewHarness, WeakCameraPairIsLinkedInRed) {
  session_.markers.clear();
  session_.cameras = {{0, {-1500, 1000, 0, 1, 0, 0, 0}, 0.3f, 0}, {1, {1500, 1000, 0, 1, 0, 0, 0}, 0.3f, 0}};
  view_->draw.cameraAxes = false;
  CalibrationOverlay& o = view_->calibration;
  o.showCoverage = true;
  o.summary.min_shared_frames = 10;
  o.coverage.resize(2);
  o.coverage[1].camera = 1;
  const auto red = [](QColor c) { return c.red() > 180 && c.green() < 90 && c.blue() < 90; };
  o.shared = {0, 3, 3, 0};
  EXPECT_GT(Count(red), 300);
  o.shared = {0, 30, 30, 0};
  EXPECT_EQ(Count(red), 0);
}

// A moved camera's label sits beside its ring on the side with room: near
// the right edge of the view it goes to the left of the ring, near the left
// edge to the right, so that it is never cut off.
TEST_F(ViewHarness, MovedCameraLabelStaysInsideTheView) {
  session_.markers.clear();
  view_->draw.cameraAxes = false;
  view_->calibration.moved = {{0, 1, 2.0f, 0.2f}};
  const float s = view_->PositionScale(), marker = 120 * view_->viewScale();
  const auto at = [&](float xMm) { return ToScreen(Vec3(xMm * s, 1000 * s, 0)); };
  const float mmPerPixel = 1000.0f / float(at(1000).x() - at(0).x());
  const auto orange = [](QColor c) {
    return c.red() > 200 && c.green() > 80 && c.green() < 150 && c.blue() < 40;
  };
  for (const bool nearRight : {true, false}) {
    const float x = float((nearRight ? view_->width() - 30 : 30) - at(0).x()) * mmPerPixel;
    session_.cameras = {{0, {x, 1000, 0, 1, 0, 0, 0}, 0.3f, 0}};
    const QPoint centre = at(x);
    const int ring = ToScreen(Vec3(x * s + marker, 1000 * s, 0)).x() - centre.x() + 2;
    // Orange pixels beyond the ring on its left and on its right.
    const int top = centre.y() - 3 * ring, rows = 6 * ring, w = view_->pixelWidth();
    const int left = Count(orange, QRect(0, top, centre.x() - ring, rows));
    const int right = Count(orange, QRect(centre.x() + ring + 1, top, w, rows));
    EXPECT_GT(nearRight ? left : right, 40) << nearRight;
    EXPECT_EQ(nearRight ? right : left, 0) << nearRight;
  }
}

TEST_F(ViewHarness, RingsTurnASelectedRigidBody) {
  SyntheticScene scene;
  scene.markers = 0;
  scene.rigids = 1;
  scene.cameras = 0;
  scene.Fill(session_, 1);
  const ZORRigid& r = session_.rigids[0];
  const float s = view_->viewScale();
  const Vec3 centre(r.pose[0] * s, r.pose[1] * s, r.pose[2] * s);
  view_->camera().wantedCentre = centre;
  Repaint();
  const QPoint body = ToScreen(centre);
  QTest::mousePress(view_, Qt::MiddleButton, {}, body - QPoint(5, 5));
  QTest::mouseRelease(view_, Qt::MiddleButton, {}, body + QPoint(5, 5));
  ASSERT_EQ(view_->selection().rigids, std::vector<int>{0});
  ASSERT_TRUE(view_->manipulator().attached());
  Repaint();
  // Grab the free-rotation ring (just outside the others, facing the viewer)
  // on its right-hand side along the screen's x.
  const float radius = Manipulator::RingRadius(view_->camera().eye, view_->manipulator().Centre());
  const int reach = std::abs(ToScreen(Vec3(centre[0] + radius * 1.15f, centre[1], centre[2])).x() -
                             body.x());
  QSignalSpy turned(view_, &GLView::sg_Manipulated);
  QTest::mousePress(view_, Qt::LeftButton, {}, body + QPoint(reach, 0));
  EXPECT_NE(view_->manipulator().state, Manipulator::kNone);
  QTest::mouseMove(view_, body + QPoint(0, -reach));
  QTest::mouseRelease(view_, Qt::LeftButton, {}, body + QPoint(0, -reach));
  EXPECT_GE(turned.count(), 1);
  EXPECT_FALSE(equals(view_->manipulator().CurrentPose(), view_->manipulator().start));
}

}  // namespace
