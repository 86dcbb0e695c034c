// The orientation bar: cell edits and their coordinate bits, the axes and
// their perpendicularity, the marker count, the body file with the overwrite
// question, the defaults file and a jitter test without data.
#include <gtest/gtest.h>

#include <QComboBox>
#include <QLineEdit>
#include <QSignalSpy>
#include <fstream>

#include "calib/orientation_bar.h"
#include "testing/qt_app_test.h"
#include "testing/zord_process.h"
#include "widgets/my_table.h"

namespace {

class OrientationBarTest : public zortest::QtAppTest {
 protected:
  OrientationBar bar{nullptr, nullptr};
};

TEST_F(OrientationBarTest, CellsSetTheirMarkerAndOnlyTheirCoordinateBit) {
  ASSERT_EQ(bar.table()->rowCount(), 4);
  bar.table()->item(1, OrientationBar::kX)->setText("12.5");
  bar.table()->item(1, OrientationBar::kY)->setText("7");
  bar.table()->item(1, OrientationBar::kNumber)->setText("14abc");
  bar.table()->item(1, OrientationBar::kName)->setText("corner");
  bar.table()->item(1, OrientationBar::kY)->setText("");
  const AlignBodyMarker& m = bar.markers()[1];
  EXPECT_EQ(m.name, "corner");
  EXPECT_EQ(m.x, 12.5f);
  EXPECT_EQ(m.given, AlignBodyMarker::kX);
  EXPECT_EQ(m.number, 14.0);

  bar.countField()->setText("2");
  bar.sl_MarkerCount();
  EXPECT_EQ(bar.table()->rowCount(), 4);
  bar.countField()->setText("3");
  bar.sl_MarkerCount();
  EXPECT_EQ(bar.table()->rowCount(), 3);
}

TEST_F(OrientationBarTest, AxesMustBeSquareToEachOtherToChangeTheOrientation) {
  QSignalSpy created(&bar, &OrientationBar::sg_CreateRB);
  bar.axisBox(0)->setCurrentIndex(0);  // x twice
  bar.axisBox(1)->setCurrentIndex(0);
  const auto before = bar.orientation();
  bar.sl_CreateRB();
  EXPECT_EQ(created.count(), 0);
  EXPECT_EQ(bar.orientation(), before);

  bar.axisBox(0)->setCurrentIndex(1);  // y, x, z
  bar.axisBox(1)->setCurrentIndex(0);
  bar.axisBox(2)->setCurrentIndex(2);
  bar.sl_CreateRB();
  EXPECT_EQ(created.count(), 1);
  EXPECT_EQ(bar.orientation(), (std::array<float, 16>{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1}));
}

TEST_F(OrientationBarTest, BodyAndDefaultsFilesReadBackAndOverwriteIsAsked) {
  zortest::TempDir dir;
  const std::string file = dir.File("frame.rb");
  std::ofstream(file) << "# frame\n13, 0 0 0\n14, 300 0 0\n16, 0 0 500\n";
  bar.chooseLoadFile = [&] { return QString::fromStdString(file); };
  bar.sl_Load();
  ASSERT_EQ(bar.markers().size(), 3u);
  EXPECT_EQ(bar.markers()[2].z, 500.0f);

  int asked = 0;
  bar.chooseSaveFile = [&] { return QString::fromStdString(file); };
  bar.confirmOverwrite = [&](const QString&) { return ++asked, false; };
  bar.table()->item(0, OrientationBar::kX)->setText("1");
  bar.sl_Save();  // refused: the file stays
  EXPECT_EQ(asked, 1);
  bar.confirmOverwrite = [](const QString&) { return true; };
  bar.sl_Save();
  OrientationBar other{nullptr, nullptr};
  ASSERT_TRUE(other.loadBody(file));
  EXPECT_EQ(other.markers()[0].x, 1.0f);
  EXPECT_EQ(other.markers()[1].number, 14.0);

  bar.axisBox(2)->setCurrentIndex(2);
  ASSERT_TRUE(bar.saveDefaults(dir.File(".default.sav")));
  other.loadDefaults(dir.File(".default.sav"));
  EXPECT_EQ(other.axisBox(2)->currentIndex(), 2);
  EXPECT_EQ(other.table()->rowCount(), 3);
  // Counts and axes out of range (a hand-edited file) change nothing: a huge
  // count would have sized the table to it.
  std::ofstream(dir.File("bad.sav")) << "marker_count: 99999999999\nmarker_count: 2000000000\naxes: 9 0 1\n";
  other.loadDefaults(dir.File("bad.sav"));
  EXPECT_EQ(other.table()->rowCount(), 3);
  EXPECT_EQ(other.axisBox(0)->currentIndex(), bar.axisBox(0)->currentIndex());

  // A test that saw nothing says so and leaves the table.
  testing::internal::CaptureStdout();
  bar.sl_Test();
  bar.sl_Test();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "calulation of error radius failed...\n");
  EXPECT_EQ(bar.table()->item(0, OrientationBar::kErrorRadius)->text(), "");
}

}  // namespace
