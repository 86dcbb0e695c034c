// The scene layer's camera, its mouse and key bindings, and the paint-rate clocks.
#include <gtest/gtest.h>

#include <cmath>

#include "view/frame_clock.h"
#include "view/mouse_state.h"
#include "view/scene_view.h"
#include "view/view_camera.h"

namespace {

TEST(ViewCamera, UpdateAddsVelocitiesThenClamps) {
  ViewCamera c;
  c.distance = 10;
  c.velocity.rotation.set(0, 1, 0);
  c.velocity.distance = 0.5f;
  c.Update();
  c.Update();
  EXPECT_FLOAT_EQ(c.rotation[1], 2);
  EXPECT_FLOAT_EQ(c.distance, 11);
  c.velocity = {};
  c.fov = 120;
  c.distance = 0;
  c.Update();
  EXPECT_FLOAT_EQ(c.fov, 90);
  EXPECT_FLOAT_EQ(c.distance, c.minDistance);
  c.fov = 0.5f;
  c.distance = 1000;
  c.Update();
  EXPECT_FLOAT_EQ(c.fov, 1);
  EXPECT_FLOAT_EQ(c.distance, c.maxDistance);
}

TEST(ViewCamera, OrbitPutsTheEyeAroundTheCentreWithMatchingUp) {
  ViewCamera c;
  c.distance = 10;
  c.Update();  // elevation 0, azimuth 0: on +Z
  EXPECT_NEAR(c.eye[2], 10, 1e-4);
  EXPECT_NEAR(c.up[1], 1, 1e-6);
  c.rotation.set(90, 0, 0);  // straight above, up towards -Z
  c.Update();
  EXPECT_NEAR(c.eye[1], 10, 1e-4);
  EXPECT_NEAR(c.up[2], -1, 1e-6);
  c.rotation.set(0, 90, 0);  // azimuth 90: on -X
  c.Update();
  EXPECT_NEAR(c.eye[0], -10, 1e-4);
}

TEST(ViewCamera, LookAroundAndFromEyeAgreeWithOrbit) {
  ViewCamera orbit;
  orbit.distance = 10;
  orbit.rotation.set(30, 40, 0);
  orbit.Update();
  ViewCamera look = orbit;
  look.mode = ViewCamera::kLookAround;
  look.centre.zero();
  look.Update();  // the point looked at from that eye is the orbit's centre
  EXPECT_NEAR(look.wantedCentre[0], 0, 1e-4);
  EXPECT_NEAR(look.wantedCentre[1], 0, 1e-4);
  ViewCamera fromEye = orbit;
  fromEye.mode = ViewCamera::kFromEye;
  fromEye.rotation.zero();
  fromEye.Update();
  EXPECT_NEAR(fromEye.rotation[0], 30, 1e-3);
  EXPECT_NEAR(fromEye.rotation[1], 40, 1e-3);
  EXPECT_NEAR(fromEye.distance, 10, 1e-4);
}

TEST(ViewCamera, BoundsKeepTheCentreInsideTheSpace) {
  ViewCamera c;
  c.wantedCentre.set(30, 10, 0);
  c.ApplyBounds();
  EXPECT_FLOAT_EQ(c.centre[0], 30);
  EXPECT_FLOAT_EQ(c.centre[1], 10);
  // Beyond the horizontal radius: the centre stays where it was.
  c.wantedCentre.set(60, 30, 0);
  c.ApplyBounds();
  EXPECT_FLOAT_EQ(c.centre[0], 30);
  EXPECT_FLOAT_EQ(c.centre[1], 10);
  // A centre already outside (bounds shrunk) is pulled back onto the limit.
  c.centre.set(80, 0, 60);
  c.ApplyBounds();
  EXPECT_NEAR(std::hypot(c.centre[0], c.centre[2]), 50, 1e-3);
}

TEST(ViewCamera, DirectDistanceOnlyInsideTheRangeAndOrthographicHalfHeight) {
  ViewCamera c;
  c.distance = 10;
  EXPECT_NEAR(c.HalfHeight(), 5.77, 0.01);  // 10 / tan(60 deg): the whole angle
  EXPECT_TRUE(c.SetDistance(c.minDistance));
  EXPECT_FALSE(c.SetDistance(c.maxDistance));  // the maximum itself is excluded
  EXPECT_FALSE(c.SetDistance(0.0004f));
  EXPECT_FLOAT_EQ(c.distance, c.minDistance);
}

TEST(MouseState, BitsAndMotion) {
  MouseState m;
  m.MoveTo(10, 10);
  m.Press(kButtonLeft);
  EXPECT_TRUE(m.Pressed(kLeftBit));
  m.MoveTo(15, 8);
  EXPECT_EQ(m.dx, -5);  // moving right gives a negative dx
  EXPECT_EQ(m.dy, 2);
  m.Motion();
  EXPECT_EQ(m.buttons, kLeftBit);
  EXPECT_EQ(m.previousButtons, kLeftBit);
  m.Press(7);  // unknown buttons count as left
  EXPECT_EQ(m.buttons, kLeftBit);
  m.Release(kButtonLeft);
  EXPECT_TRUE(m.Released(kLeftBit));
}

// Wheel events through the scene layer's bindings (no GL needed without Control).
MouseState Wheel(MouseState m, int button, int modifiers) {
  m.modifiers = modifiers;
  m.Press(button);
  return m;
}

TEST(SceneInput, WheelZoomsByStepsButNotBelowTheMinimum) {
  SceneView scene;
  scene.camera().distance = 30;
  EXPECT_TRUE(scene.Mouse(Wheel(MouseState{}, kWheelForward, 0)));
  EXPECT_FLOAT_EQ(scene.camera().distance, 20);
  EXPECT_TRUE(scene.Mouse(Wheel(MouseState{}, kWheelBackward, kShift)));
  EXPECT_FLOAT_EQ(scene.camera().distance, 22);
  scene.camera().distance = 0.0006f;
  const Vec3 centre = scene.camera().wantedCentre;
  scene.Mouse(Wheel(MouseState{}, kWheelForward, kControl));
  EXPECT_FLOAT_EQ(scene.camera().distance, 0.0006f);
  EXPECT_TRUE(equals(scene.camera().wantedCentre, centre));
}

TEST(SceneInput, RightDragTurnsAndMiddleRightResetsDistance) {
  SceneView scene;
  MouseState m;
  m.Press(kButtonRight);
  scene.Mouse(m);
  const Vec3 before = scene.camera().rotation;
  m.MoveTo(-4, 3);  // dx = 4, dy = -3
  m.Motion();
  EXPECT_TRUE(scene.Mouse(m));
  EXPECT_FLOAT_EQ(scene.camera().rotation[0], before[0] - 3);
  EXPECT_FLOAT_EQ(scene.camera().rotation[1], before[1] - 4);
  m.Press(kButtonMiddle);
  scene.Mouse(m);
  EXPECT_FLOAT_EQ(scene.camera().distance, 20);
}

TEST(SceneInput, ReleaseStopsAPanAtTheBounds) {
  SceneView scene;
  scene.camera().wantedCentre.set(500, 0, 0);
  MouseState m;
  m.Press(kButtonRight);
  scene.Mouse(m);
  m.Release(kButtonRight);
  scene.Mouse(m);
  EXPECT_TRUE(equals(scene.camera().wantedCentre, scene.camera().centre));
  EXPECT_EQ(scene.interaction(), SceneView::kIdle);
}

TEST(SceneInput, MiddleButtonWithModifiersSetsBoxModes) {
  const std::pair<int, SceneView::Interaction> cases[] = {
      {kControl, SceneView::kBoxAdd}, {kControl | kShift, SceneView::kCtrlDrag}};
  for (const auto& [modifiers, mode] : cases) {
    SceneView scene;
    MouseState m;
    m.modifiers = modifiers;
    m.Press(kButtonMiddle);
    scene.Mouse(m);
    EXPECT_EQ(scene.interaction(), mode) << modifiers;
  }
}

TEST(SceneInput, KeysOfTheTable) {
  SceneView scene;
  MouseState m;
  scene.Key('x', true, m);
  EXPECT_FLOAT_EQ(scene.camera().rotation[1], 270);
  scene.Key('Y', true, m);
  EXPECT_FLOAT_EQ(scene.camera().rotation[0], 270);
  scene.Key('e', true, m);
  EXPECT_FLOAT_EQ(scene.camera().velocity.rotation[1], 1);
  scene.Key('e', false, m);
  EXPECT_FLOAT_EQ(scene.camera().velocity.rotation[1], 0);
  scene.Key('E', true, m);
  scene.Key('Q', true, m);
  EXPECT_NEAR(scene.camera().velocity.rotation[1], 0.01, 1e-6);  // uneven on purpose
  scene.Key('\t', true, m);
  EXPECT_EQ(scene.camera().mode, ViewCamera::kLookAround);
  scene.Key('o', true, m);
  EXPECT_TRUE(scene.camera().orthographic);
  const float cone = scene.coneLength();
  scene.Key(']', true, m);
  EXPECT_FLOAT_EQ(scene.coneLength(), cone + 200);
  scene.SetConeLength(200);
  scene.Key('[', true, m);
  EXPECT_FLOAT_EQ(scene.coneLength(), 200);  // not above 200: unchanged
  testing::internal::CaptureStdout();
  scene.Key('b', true, m);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Show Rigid Markers=0\n");
  scene.Key('R', true, m);
  EXPECT_EQ(scene.camera().mode, ViewCamera::kOrbit);
  EXPECT_FALSE(scene.camera().orthographic);
}

TEST(FrameClock, RatesOncePerSecond) {
  PaintRates rates;
  rates.OnPaint(0, 1000);
  EXPECT_TRUE(rates.combined().empty());
  rates.OnPaint(1001000, 1001000);  // same t0 as t1: the draw time counts as 1
  EXPECT_EQ(rates.lastDrawRate(), 1e6);
  EXPECT_EQ(rates.combined(), "fps:  1000000.0 @  1.0");
  PaintRates same;
  same.OnPaint(5, 6);
  same.OnPaint(5, 1000100);  // two paints with the same t0
  EXPECT_EQ(same.lastFrameRate(), 1e6);
}

TEST(FrameClock, SceneRateSampler) {
  FrameRateSampler s;
  s.Sample(0, 0);
  EXPECT_DOUBLE_EQ(s.Sample(2000000, 120), 60);
  EXPECT_DOUBLE_EQ(s.Sample(4000000, 10), 0);  // the counter went backwards
  // The clock wraps: differences stay right.
  FrameRateSampler w;
  w.Sample(0xFFFFFF00u, 0);
  EXPECT_NEAR(w.Sample(0xFFFFFF00u + 2000000u, 100), 50, 1e-9);
}

}  // namespace
