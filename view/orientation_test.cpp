// The view orientation file: the last line of 16 numbers wins, anything
// shorter is skipped, and what is written reads back.
#include <gtest/gtest.h>

#include <fstream>

#include "testing/zord_process.h"
#include "view/orientation.h"

TEST(OrientationFile, TakesTheLastFullLineAndReadsBackWhatItWrote) {
  zortest::TempDir dir;
  const std::string file = dir.File(".orientation");
  OrientationMatrix m = IdentityOrientation();
  EXPECT_FALSE(ReadOrientationFile(file, m));  // missing: kept
  std::ofstream(file) << "0 1 0 0 1 0 0 0 0 0 -1 0 0 0 0 1 \n"
                      << "2 2 2 2 2 2 2 2 2 2 2 2 2 2 2 \n";  // 15 numbers
  ASSERT_TRUE(ReadOrientationFile(file, m));
  EXPECT_EQ(m, AxesMatrix({0, 1, 0}, {1, 0, 0}, {0, 0, -1}));

  ASSERT_TRUE(WriteOrientationFile(file, IdentityOrientation()));
  ASSERT_TRUE(ReadOrientationFile(file, m));
  EXPECT_EQ(m, IdentityOrientation());
  testing::internal::CaptureStdout();
  EXPECT_FALSE(WriteOrientationFile(dir.File("missing/.orientation"), m));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "unable to open: " + dir.File("missing/.orientation") + "\n");
}
