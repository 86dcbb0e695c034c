// The executable: what it prints and how it ends before any window exists.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "testing/zord_process.h"

namespace {

struct Outcome {
  int exitCode = -1;
  std::string out;
};

Outcome RunClient(const std::string& args) {
  // No display: anything that tried to open a window would fail loudly.
  const std::string command =
      "env -u DISPLAY QT_QPA_PLATFORM=none " + zortest::BinPath("zorcalib") + " " + args;
  Outcome run;
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return run;
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) run.out.append(buffer, n);
  const int status = pclose(pipe);
  if (WIFEXITED(status)) run.exitCode = WEXITSTATUS(status);
  return run;
}

TEST(ZorcalibTest, HelpAndUsageExitZeroBeforeAnyWindow) {
  Outcome help = RunClient("-fps 30 -h -connect");
  EXPECT_EQ(help.exitCode, 0);
  // Only what came before it, then the help text (its lines are checked elsewhere).
  EXPECT_EQ(help.out.rfind("fps: 30\nCorvane System Calibration\n  -connect ", 0), 0u) << help.out;
  EXPECT_EQ(help.out.find("version"), std::string::npos);

  Outcome usage = RunClient("-bogus -u");
  EXPECT_EQ(usage.exitCode, 0);
  const std::string line = "usage:  " + zortest::BinPath("zorcalib") +
                           " [-connect] [-auto] [-fps] [-h] [file.rb]\n";
  EXPECT_EQ(usage.out, line + line);
}

}  // namespace
