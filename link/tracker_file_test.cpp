// Tracker files: reading (scale lines, comments, bad lines), writing, and the
// files shipped with the program.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "link/tracker.h"
#include "link/tracker_test_util.h"
#include "testing/zord_process.h"

namespace {

using zortest::DataPath;
using Floats = std::vector<float>;

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

TEST(TrackerFileRead, ScaleLineAndCommentsApplyToLaterLines) {
  Tracker t(ZOR_RIGID_TRACKER, 2, DataPath("tests/scaled.rb"));
  ASSERT_EQ(t.markers.size(), 4u);
  EXPECT_EQ(Leds(t), (std::vector<int>{0, 1, 2, 3}));
  EXPECT_EQ(t.markers[0].position, (Floats{0, 0, 0}));
  EXPECT_EQ(t.markers[1].position, (Floats{100, 0, 0}));
  EXPECT_EQ(t.markers[3].position, (Floats{0, 0, 100}));
  // A second read appends, numbering its markers from zero again.
  EXPECT_EQ(t.Read(ZOR_RIGID_TRACKER, DataPath("tests/scaled.rb")), 8);
  EXPECT_EQ(Indices(t), (std::vector<int>{0, 1, 2, 3, 0, 1, 2, 3}));
}

TEST(TrackerFileRead, PointReadDropsPositionsAndKeepsBareIds) {
  Tracker t(ZOR_POINT_TRACKER, 0, DataPath("tests/points.pt"));
  EXPECT_EQ(Leds(t), (std::vector<int>{4, 5, 9}));
  for (const auto& m : t.markers) EXPECT_TRUE(m.position.empty());
  // The same file read as a rigid keeps the one position it has.
  Tracker rigid(ZOR_RIGID_TRACKER, 0, DataPath("tests/points.pt"));
  EXPECT_TRUE(rigid.markers[0].position.empty());
  EXPECT_EQ(rigid.markers[1].position, (Floats{1, 2, 3}));
}

TEST(TrackerFileRead, BadLinesAndMissingFiles) {
  const std::string file = DataPath("tests/short_line.rb");
  Tracker t(ZOR_RIGID_TRACKER, 0, 0);
  EXPECT_EQ(Stderr([&] { EXPECT_EQ(t.Read(ZOR_RIGID_TRACKER, file), 0); }),
            file + ":2: invalid string: 2, 0 100\n");
  EXPECT_EQ(t.markers.size(), 2u);  // what came before the bad line stays
  EXPECT_EQ(Stderr([&] { EXPECT_EQ(t.Read(ZOR_RIGID_TRACKER, "/nonexistent/x.rb"), 0); }),
            "error: open(/nonexistent/x.rb): No such file or directory\n");
  const std::string empty = DataPath("tests/empty_line.rb");
  EXPECT_EQ(Stderr([&] { EXPECT_EQ(t.Read(ZOR_RIGID_TRACKER, empty), 0); }),
            empty + ":1: invalid string: \n");

  // A missing final line end is no fault.
  Tracker u(ZOR_RIGID_TRACKER, 0, DataPath("tests/no_final_newline.rb"));
  ASSERT_EQ(u.markers.size(), 2u);
  EXPECT_EQ(u.markers[0].position, (Floats{1.5f, -2.25f, 3}));
  EXPECT_EQ(u.markers[1].position, (Floats{4, 5, 6}));

  zortest::TempDir dir;
  // A line that converts nothing and is no scale line is skipped silently;
  // one longer than 255 characters ends the reading, earlier lines stand.
  std::ofstream(dir.File("odd.rb")) << "name: wand\n1, 1 2 3\n";
  std::ofstream(dir.File("long.rb")) << "1, 1 2 3\n" << std::string(300, '#') << "\n2, 1 2 3\n";
  for (const char* name : {"odd.rb", "long.rb"}) {
    Tracker v(ZOR_RIGID_TRACKER, 0, 0);
    EXPECT_EQ(v.Read(ZOR_RIGID_TRACKER, dir.File(name)), 1) << name;
    EXPECT_EQ(v.markers[0].index, 0);
  }
}

TEST(TrackerFileWrite, RigidLinesDivideByScaleWithTrailingBlank) {
  zortest::TempDir dir;
  std::vector<TrackerMarker> markers = {{0, 7, {10, 20, 30}}, {1, 8, {}}, {2, 9, {-1, 0.005f, 2}}};
  Tracker t(ZOR_RIGID_TRACKER, 3, markers, 1.0f);
  EXPECT_EQ(Stdout([&] { EXPECT_TRUE(t.Write(dir.File("out.rb"), 2.0f)); }),
            "wrote to " + dir.File("out.rb") + "\n");
  // LED 8 has no position and is left out; no scale line is written.
  EXPECT_EQ(Slurp(dir.File("out.rb")), "7, 5.00 10.00 15.00 \n9, -0.50 0.00 1.00 \n");
  // What is written reads back as the same markers.
  Tracker back(ZOR_RIGID_TRACKER, 3, dir.File("out.rb"));
  EXPECT_EQ(Leds(back), (std::vector<int>{7, 9}));
  EXPECT_EQ(back.markers[0].position, (Floats{5, 10, 15}));
}

TEST(TrackerFileWrite, PointAndOtherKinds) {
  zortest::TempDir dir;
  std::vector<TrackerMarker> markers = {{0, 4, {1, 2, 3}}, {1, 6, {}}};
  Stdout([&] {
    EXPECT_TRUE(Tracker(ZOR_POINT_TRACKER, 0, markers, 1.0f).Write(dir.File("p.pt"), 1.0f));
    EXPECT_TRUE(Tracker(ZOR_CALIB_TRACKER, 1, markers, 1.0f).Write(dir.File("c.rb"), 1.0f));
    EXPECT_TRUE(Tracker(0x999, 1, markers, 1.0f).Write(dir.File("x.rb"), 1.0f));
  });
  EXPECT_EQ(Slurp(dir.File("p.pt")), "4\n6\n");
  EXPECT_EQ(Slurp(dir.File("c.rb")), "4, 1.00 2.00 3.00 \n");
  EXPECT_EQ(Slurp(dir.File("x.rb")), "");  // created, but nothing to write
  Tracker point(ZOR_POINT_TRACKER, 0, markers, 1.0f);
  EXPECT_EQ(Stderr([&] { EXPECT_FALSE(point.Write("/nonexistent/p.pt", 1.0f)); }),
            "error: open(/nonexistent/p.pt): No such file or directory\n");
}

// The tracker files shipped for the calibration and the demo must load.
TEST(TrackerFileRead, ShippedTrackerFilesLoad) {
  for (const char* name : {"wand.rb", "body.rb", "align.rb"}) {
    std::unique_ptr<Tracker> t;
    const std::string error =  // a missing file says so, and has no markers
        Stderr([&] { t = std::make_unique<Tracker>(ZOR_RIGID_TRACKER, 2, DataPath(name)); });
    EXPECT_GE(t->markers.size(), 3u) << error;
    for (const auto& m : t->markers) EXPECT_EQ(m.position.size(), 3u) << name;
  }
}

}  // namespace
