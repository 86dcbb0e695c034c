// Picking in the scene: rays, pick boxes and hit records, the 2D camera grid,
// selections and their sets, the rotation rings and the scene's texts.
#include <gtest/gtest.h>

#include <cmath>

#include "link/zortk.h"
#include "view/camera_grid.h"
#include "view/manipulator.h"
#include "view/scene_view.h"
#include "view/selection.h"

namespace {

ZORMarker At(float x, float y, float z, int id = 0, float cond = 1) {
  ZORMarker m{};
  m.id = id;
  m.x = x, m.y = y, m.z = z;
  m.cond = cond;
  return m;
}

// Ray from the origin along -Z.
const Vec3 kOrigin(0, 0, 0), kAlongMinusZ(0, 0, -1);

TEST(RayPick, NearestSeenMarkerInFrontWithinTheRadius) {
  const std::vector<ZORMarker> markers = {At(0, 0, -20), At(0.5f, 0, -10), At(3, 0, -5)};
  EXPECT_EQ(PickMarker(markers, 1, kOrigin, kAlongMinusZ, 1), 1);
  EXPECT_EQ(PickMarker(markers, 1, kOrigin, kAlongMinusZ, 0.4f), 0);
  // Ties keep the earlier marker.
  EXPECT_EQ(PickMarker({At(0.3f, 0, -10), At(-0.3f, 0, -10)}, 1, kOrigin, kAlongMinusZ, 1), 0);
  // Unseen, behind the eye or far off: nothing.
  const std::vector<ZORMarker> none = {At(0, 0, -10, 0, 0), At(0, 0, 10), At(5, 0, -10)};
  EXPECT_EQ(PickMarker(none, 1, kOrigin, kAlongMinusZ, 1), -1);
  EXPECT_EQ(PickMarker({}, 1, kOrigin, kAlongMinusZ, 1), -1);
  // Positions are scaled (mm to view units).
  const std::vector<ZORMarker> far = {At(0, 0, -1000)};
  EXPECT_EQ(PickMarker(far, 0.01f, Vec3(0.5f, 0, 0), kAlongMinusZ, 0.6f), 0);
  EXPECT_EQ(PickMarker(far, 0.01f, Vec3(0.7f, 0, 0), kAlongMinusZ, 0.6f), -1);
}

TEST(PickRegion, BoxBetweenStartAndPointer) {
  const PickRegion r = PickRegion::Box(10, 100, 50, 20);
  EXPECT_EQ(r.w, 40);
  EXPECT_EQ(r.h, 80);
  EXPECT_EQ(r.x, 30);
  EXPECT_EQ(r.y, 60);
  EXPECT_EQ(PickRegion::Box(10, 10, 10, 30).w, 1);  // zero width picks one pixel
  EXPECT_EQ(PickRegion::Around(5, 6).w, 8);
}

TEST(DecodeHits, InnermostNamesAndOverflow) {
  const uint32_t buffer[] = {1, 0, 0, 0x100003, 2, 0, 0, 0, 12, 1, 0, 0, 0x300001};
  EXPECT_EQ(DecodeHits(buffer, 13, 3), (std::vector<uint32_t>{0x100003, 12, 0x300001}));
  // A record running past the buffer ends the list.
  EXPECT_EQ(DecodeHits(buffer, 6, 3), (std::vector<uint32_t>{0x100003}));
  // Overflow (-1): everything complete is used.
  EXPECT_EQ(DecodeHits(buffer, 13, -1).size(), 3u);
  EXPECT_TRUE(DecodeHits(buffer, 13, 0).empty());
}

TEST(CameraGrid, LayoutAndCellIndex) {
  // 16 cameras in 1290 x 810: sqrt(1280 / 800 * 16) = 5.06 -> 5 columns, 4 rows.
  const CameraGrid g = CameraGrid::Layout(16, 1290, 810);
  EXPECT_EQ(g.columns, 5);
  EXPECT_EQ(g.rows, 4);
  EXPECT_DOUBLE_EQ(g.cellWidth, 258);
  EXPECT_EQ(g.CellAt(1, 809), 0);  // top left (y from the bottom)
  EXPECT_EQ(g.CellAt(1289, 0), 19);  // bottom right: beyond the cameras
  EXPECT_EQ(g.CellAt(260, 700), 1);
  EXPECT_EQ(g.CellAt(-1, 5), -1);
  for (const CameraGrid& one : {CameraGrid::Layout(1, 20, 400), CameraGrid::Layout(0, 640, 480)}) {
    EXPECT_EQ(one.columns, 1);
    EXPECT_EQ(one.rows, 1);
  }
}

TEST(Selection, ToggleSetsAndRecall) {
  std::vector<ZORMarker> markers = {At(0, 0, 0, 100), At(1, 0, 0, 101), At(2, 0, 0, 102)};
  std::vector<ZORRigid> rigids(1);
  rigids[0].id = 3;
  std::vector<ZORCamera> cameras(2);
  cameras[0].id = 0, cameras[1].id = 1;
  Selection s;
  EXPECT_TRUE(s.ToggleMarker(2));
  EXPECT_TRUE(s.ToggleMarker(0));
  EXPECT_FALSE(s.ToggleMarker(2));
  s.AddDragMarker(1);
  s.ResizeCameras(2);
  s.ToggleCamera(1);
  EXPECT_EQ(s.AllMarkers(), (std::vector<int>{0, 1}));
  EXPECT_EQ(s.UseSet(1, markers, rigids, cameras), 1);  // stored
  s.ClearAll();
  EXPECT_TRUE(s.Empty());
  // The frame's order changes; the set follows the ids.
  std::swap(markers[0], markers[2]);
  EXPECT_EQ(s.UseSet(1, markers, rigids, cameras), 2);  // recalled
  EXPECT_EQ(s.markers, (std::vector<int>{1, 2}));
  EXPECT_TRUE(s.CameraSelected(1));
  EXPECT_FALSE(s.CameraSelected(0));
  Selection empty;
  EXPECT_EQ(empty.UseSet(2, markers, rigids, cameras), 0);  // nothing to store
  EXPECT_EQ(empty.UseSet(10, markers, rigids, cameras), 0);
  s.ForgetSets();
  EXPECT_FALSE(s.SetStored(1));
}

// The pointer looking straight down -Z at a body at the origin.
PointerRay RayThrough(float x, float y) {
  PointerRay r;
  r.eye.set(0, 0, 10);
  r.origin = r.eye;
  r.direction = difference(Vec3(x, y, 0), r.eye).setLength(1);
  r.point.set(x, y, 0);
  r.viewDirection.set(0, 0, -1);
  return r;
}

TEST(Manipulator, ZRingTurnsAboutZAndDraggingBackLeavesThePose) {
  Manipulator m;
  Pose start;
  start[0] = 0.5f;  // the body keeps its place
  m.Attach(start, 1);
  ASSERT_TRUE(m.Press(kNameRingZ, RayThrough(1.5f, 0)));
  EXPECT_EQ(m.state, Manipulator::kRingZ);
  ASSERT_TRUE(m.Drag(RayThrough(0.5f, 1)));
  EXPECT_NEAR(m.CurrentPose()[3], std::cos(M_PI / 4), 1e-5);
  EXPECT_NEAR(m.CurrentPose()[6], std::sin(M_PI / 4), 1e-5);
  EXPECT_NEAR(m.CurrentPose()[0], 0.5f, 1e-6);
  m.Drag(RayThrough(1.5f, 0));
  EXPECT_TRUE(equals(m.CurrentPose(), start));
  ASSERT_TRUE(m.Drag(RayThrough(0.5f, 1)));
  EXPECT_TRUE(m.Release());
  EXPECT_EQ(m.state, Manipulator::kNone);
  // The rotation is kept after the release.
  EXPECT_NEAR(m.CurrentPose()[6], std::sin(M_PI / 4), 1e-5);
}

TEST(Manipulator, RingsOfAnAttachedBodyOnly) {
  EXPECT_FALSE(Manipulator().Press(kNameRingZ, RayThrough(1, 0)));
  Manipulator m;
  m.Attach(Pose{}, 1);
  EXPECT_FALSE(m.Press(20, RayThrough(1, 0)));
  EXPECT_FALSE(m.Drag(RayThrough(0, 1)));  // nothing held
  EXPECT_FALSE(m.Release());

  // A drag to the opposite side says so and keeps the rotation.
  ASSERT_TRUE(m.Press(kNameRingZ, RayThrough(1, 0)));
  testing::internal::CaptureStdout();
  m.Drag(RayThrough(-1, 0));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Released(): cross prod has no length...\n");
  EXPECT_TRUE(equals(m.CurrentPose(), Pose{}));
  m.Release();

  // The X ring's normal (+X) is square to a view along -Z: edge-on, it is
  // grabbed on the sphere, in the ring's plane (YZ).
  ASSERT_TRUE(m.Press(kNameRingX, RayThrough(0, 1)));
  EXPECT_NEAR(m.startDirection[0], 0, 1e-6);
  EXPECT_NEAR(m.startDirection.length(), 1, 1e-5);
  EXPECT_GT(m.startDirection[1], 0);
  m.Release();

  // The free ring turns about the view axis (the plane faces the viewer).
  ASSERT_TRUE(m.Press(kNameRingFree, RayThrough(0, 0.001f)));
  m.Drag(RayThrough(0.001f, 0));
  EXPECT_NEAR(std::fabs(m.CurrentPose()[6]), std::sin(M_PI / 4), 1e-3);
}

TEST(SceneText, MeasurementsReadMillimetresWhateverTheSessionsScale) {
  ZOR metres(8, 0.001f);  // the calibration session receives metres
  metres.markers = {At(0.1f, 0, 0), At(0.1f, 0.7f, 0)};
  SceneView view;
  view.SetSession(&metres);
  view.selection().ToggleMarker(0);
  EXPECT_EQ(view.MeasurementLabels(), std::vector<std::string>({"100.00 0.00 0.00"}));
  view.selection().ToggleMarker(1);
  EXPECT_EQ(view.MeasurementLabels()[1], "100.00 700.00 0.00 (d:700.00)");
}

TEST(SceneText, LabelsWarningsAndTitles) {
  EXPECT_EQ(SceneView::MarkerLabel((2 << 12) | 5, "wand", true), "2:5 (wand)");
  EXPECT_EQ(SceneView::MarkerLabel(5, "rb", false), "5 (rb)");
  ZORCamera c{};
  c.id = 10;
  ZORDetector d{};
  d.state = 1, d.detections = 4, d.focal = 1400, d.exposure = 500, d.temperature = 41.5f;
  EXPECT_EQ(SceneView::CameraCellTitle(c, &d), "0B:01  [ 4.0  1400.0  500.0  41.5 ]");
}

}  // namespace
