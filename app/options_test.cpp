// The calibration client's command line: switches, their values, and what it prints.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/calib_options.h"
#include "link/zorsock_double.h"

namespace {

// Parses a command line (program name first) with standard output captured.
struct Parsed {
  CalibOptions options{"Corvane System Calibration"};
  int result = 0;
  std::string out;
};

Parsed Parse(std::vector<std::string> args) {
  args.insert(args.begin(), "zorcalib");
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  Parsed p;
  testing::internal::CaptureStdout();
  p.result = p.options.parse(int(args.size()), argv.data());
  p.out = testing::internal::GetCapturedStdout();
  return p;
}

const std::string kUsage = "usage:  zorcalib [-connect] [-auto] [-fps] [-h] [file.rb]\n";
const std::string kVersion = "version: test 1.0\n";

class OptionsTest : public testing::Test {
 protected:
  void SetUp() override { zordouble::Reset(); }
};

TEST_F(OptionsTest, EverySwitchSetsItsField) {
  Parsed p = Parse({"-connect", "-auto", "-capture", "-kelo", "-full", "-c3dstream", "-s", "lab",
                    "-gridlen", "2.5", "-gridct", "7", "-gridlabel", "ft", "-wand", "a.rb", "-wand",
                    "b.rb", "-rigid", "r1.rb", "-rigid", "r2.rb", "-point", "p.pt", "-p", "x",
                    "-r", "y.rb", "z.pt"});
  EXPECT_EQ(p.out, kVersion);
  const CalibOptions& o = p.options;
  EXPECT_TRUE(o.connect && o.autoCapture && o.capture && o.orientation && o.full && o.c3dStream);
  EXPECT_EQ(o.server, "lab");
  EXPECT_EQ(o.gridCount, 7);
  EXPECT_EQ(o.wandFiles, (std::vector<std::string>{"a.rb", "b.rb"}));
  EXPECT_EQ(o.rigidFile, "r2.rb");  // the last one wins
  EXPECT_EQ(o.pointFile, "p.pt");
  EXPECT_EQ(o.trackerFiles, (std::vector<std::string>{"x", "y.rb", "z.pt"}));
  EXPECT_EQ(Parse({"-d", "host2"}).options.server, "host2");
  EXPECT_EQ(Parse({"-orientation"}).options.orientation, 1);
}

TEST_F(OptionsTest, StartModesOverwriteOnlyTheirOwnFields) {
  EXPECT_EQ(Parse({"-calib"}).options.startMode, 0);
  EXPECT_EQ(Parse({"-align"}).options.startMode, 1);
  EXPECT_EQ(Parse({"-nowiz"}).options.startMode, 2);
  for (int kind = 1; kind <= 3; ++kind) {
    Parsed p = Parse({"-align" + std::to_string(kind)});
    EXPECT_EQ(p.options.startMode, 2);
    EXPECT_EQ(p.options.alignKind, kind);
  }
  Parsed p = Parse({"-align2", "-calib"});
  EXPECT_EQ(p.options.startMode, 0);
  EXPECT_EQ(p.options.alignKind, 2);
}

TEST_F(OptionsTest, UnknownArgumentsPrintUsageAndParsingGoesOnToTheVersionLine) {
  Parsed p = Parse({"-CONNECT", "-connectx", "-conn", "-connect"});
  EXPECT_EQ(p.result, 1);
  EXPECT_EQ(p.out, kUsage + kUsage + kUsage + kVersion);
  EXPECT_EQ(p.options.connect, 1);
  zordouble::Double().version = "";  // no library version: no line
  EXPECT_EQ(Parse({}).out, "");
}

TEST_F(OptionsTest, HelpAndUsageStopBeforeAnythingElse) {
  Parsed help = Parse({"-h", "-connect"});
  EXPECT_EQ(help.result, 0);
  EXPECT_EQ(help.out,
            "Corvane System Calibration\n"
            "  -connect       automatically connect on start\n"
            "  -auto          automatically capture on connect\n"
            "  -fps           set the frames per second displayed\n"
            "  -h             display this message and exit\n"
            "  file.rb        create a rigid body tracker from rigid body file\n");
  EXPECT_EQ(help.options.connect, 0);  // not read

  Parsed usage = Parse({"-auto", "-u", "-connect"});
  EXPECT_EQ(usage.result, 0);
  EXPECT_EQ(usage.out, kUsage);
  EXPECT_EQ(usage.options.autoCapture, 1);
}

TEST_F(OptionsTest, FpsTakesOnlyPositiveRatesAndAlwaysPrints) {
  Parsed p = Parse({"-fps", "24.9"});
  EXPECT_EQ(p.options.fps, 24.9f);
  EXPECT_EQ(p.out, "fps: 24.9\n" + kVersion);
  EXPECT_EQ(RedrawInterval(p.options.fps), 41);

  Parsed zero = Parse({"-fps", "0"});
  EXPECT_EQ(zero.options.fps, 60.0f);
  EXPECT_EQ(zero.out, "fps: 60\n" + kVersion);
  // Whatever the rate, the redraw timer gets a whole, sane interval.
  EXPECT_EQ(RedrawInterval(0.5f), 1000);
  EXPECT_EQ(RedrawInterval(5000), 1);
  EXPECT_EQ(RedrawInterval(Parse({"-fps", "1e30"}).options.fps), 1);
}

TEST_F(OptionsTest, ValuesThatAreMissingOrOutOfRange) {
  Parsed grid = Parse({"-gridlen", "0", "-gridct", "-3"});
  EXPECT_EQ(grid.options.gridLength, 0.0f);
  EXPECT_EQ(grid.options.gridCount, 0);
  EXPECT_EQ(grid.out, kVersion);
  // -scale leaves its value to be parsed on its own.
  Parsed scale = Parse({"-scale", "2"});
  EXPECT_EQ(scale.options.scale, -1.0f);
  EXPECT_EQ(scale.out, kUsage + kVersion);
  EXPECT_EQ(Parse({"-scale", "body.rb"}).options.trackerFiles, (std::vector<std::string>{"body.rb"}));
  // A switch without its value is not understood.
  for (const char* sw : {"-wand", "-rigid", "-point", "-s", "-fps", "-p", "-scale"}) {
    Parsed p = Parse({sw});
    EXPECT_EQ(p.out, kUsage + kVersion) << sw;
    EXPECT_TRUE(p.options.wandFiles.empty() && p.options.rigidFile.empty() && p.options.server.empty());
  }
}

TEST_F(OptionsTest, TrackerFileExtensionIsCaseSensitiveAndTakenFromTheLastDot) {
  EXPECT_EQ(Parse({"a.b.rb", "c.pt"}).options.trackerFiles,
            (std::vector<std::string>{"a.b.rb", "c.pt"}));
  for (const char* name : {"model.RB", "x.rb.bak", "x.rbx", "rb", "x.p"}) {
    Parsed p = Parse({name});
    EXPECT_TRUE(p.options.trackerFiles.empty()) << name;
    EXPECT_EQ(p.out, kUsage + kVersion) << name;
  }
}

}  // namespace
