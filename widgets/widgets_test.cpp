// The small widgets as a user drives them, and the built-in images.
#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QTest>

#include "widgets/embedded_images.h"
#include "widgets/label_button.h"
#include "testing/qt_app_test.h"

namespace {


using WidgetsTest = zortest::QtAppTest;

void Send(QWidget* w, QEvent::Type type, QPoint p, Qt::MouseButtons held) {
  QMouseEvent e(type, p, w->mapToGlobal(p), Qt::LeftButton, held, Qt::NoModifier);
  QApplication::sendEvent(w, &e);
}

TEST_F(WidgetsTest, LabelButtonClicksOnReleaseInsideEdgesIncluded) {
  LabelButton b;
  b.resize(100, 40);
  QSignalSpy clicked(&b, &LabelButton::sg_Clicked);
  EXPECT_EQ(b.focusPolicy(), Qt::StrongFocus);
  EXPECT_EQ(b.frameShadow(), QFrame::Raised);

  Send(&b, QEvent::MouseButtonPress, {10, 10}, Qt::LeftButton);
  EXPECT_EQ(b.background(), QColor("#e0e0ef"));
  EXPECT_EQ(b.frameShadow(), QFrame::Sunken);
  Send(&b, QEvent::MouseButtonRelease, {100, 40}, Qt::NoButton);  // one beyond: still inside
  EXPECT_EQ(clicked.count(), 1);
  EXPECT_EQ(b.background(), QColor("#ccccdf"));
  EXPECT_EQ(b.frameShadow(), QFrame::Raised);

  for (QPoint outside : {QPoint(101, 10), QPoint(10, -1)}) {
    Send(&b, QEvent::MouseButtonPress, {10, 10}, Qt::LeftButton);
    Send(&b, QEvent::MouseButtonRelease, outside, Qt::NoButton);
  }
  EXPECT_EQ(clicked.count(), 1);

  // Dragged out and released back inside: the press was forgotten.
  Send(&b, QEvent::MouseButtonPress, {10, 10}, Qt::LeftButton);
  Send(&b, QEvent::MouseMove, {150, 10}, Qt::LeftButton);
  EXPECT_FALSE(b.inside());
  EXPECT_EQ(b.background(), QColor("#ccccdf"));
  Send(&b, QEvent::MouseButtonRelease, {50, 10}, Qt::NoButton);
  EXPECT_EQ(clicked.count(), 1);
  Send(&b, QEvent::MouseMove, {50, 10}, Qt::NoButton);  // hovering back in
  EXPECT_TRUE(b.inside());
  EXPECT_EQ(b.background(), QColor("#dededf"));
}

TEST_F(WidgetsTest, EveryNamedImageIsServed) {
  const char* const names[] = {"ap1On.png",  "ap1Off.png",  "ap2On.png", "ap2Off.png", "ap3On.png",
                               "ap3Off.png", "cp1On.png",   "cp1Off.png", "cp2On.png", "cp2Off.png",
                               "cp3On.png",  "cp3Off.png",  "cp4On.png", "cp4Off.png", "liveOn.png",
                               "liveOff.png", "pause.png", "save.png",  "load.png"};
  for (const char* name : names) {
    const QImage image = FindImage(EmbeddedImages(), name);
    ASSERT_FALSE(image.isNull()) << name;
    EXPECT_GE(image.width(), 16) << name;
    EXPECT_TRUE(image.hasAlphaChannel()) << name;
    EXPECT_FALSE(LoadPixmap(name).isNull()) << name;
  }
  // On and off lamps really differ.
  EXPECT_NE(FindImage(EmbeddedImages(), "cp1On.png"), FindImage(EmbeddedImages(), "cp1Off.png"));
  EXPECT_NE(FindImage(EmbeddedImages(), "cp1On.png"), FindImage(EmbeddedImages(), "cp2On.png"));
}

TEST_F(WidgetsTest, UnknownOrDamagedImageIsEmpty) {
  EXPECT_TRUE(FindImage(EmbeddedImages(), "nothing.png").isNull());
  EXPECT_TRUE(LoadPixmap("").isNull());
  const unsigned char junk[] = {0, 0, 1, 0, 1, 2, 3, 4};
  const EmbeddedImage damaged[] = {{"bad.png", 4, 4, 32, nullptr, 0, true, junk, sizeof junk},
                                   {nullptr, 0, 0, 0, nullptr, 0, false, nullptr, 0}};
  EXPECT_TRUE(FindImage(damaged, "bad.png").isNull());
}

}  // namespace
