// The pass lines of the status panel and the progress label.
#include <gtest/gtest.h>

#include "calib/calib_display.h"

namespace {

TEST(CalibResultHtml, ASuccessfulPassShowsItsErrorAfterTheLinesBefore) {
  const QString first = CalibResultHtml("old text", 1, 0.5f, "");
  EXPECT_EQ(first, "<div><strong><normal>Pass 1 OK:  </normal></strong>(0.5)");  // a new run
  EXPECT_EQ(CalibResultHtml(first, 2, 0.35f, ""),
            first + "<div><strong><normal>Pass 2 OK:  </normal></strong>(0.35)");
  EXPECT_EQ(CalibResultHtml("", 4, 0.099004f, ""),
            "<div><strong><normal>Pass 4 OK:  </normal></strong>(0.099004)");
}

TEST(CalibResultHtml, AFailedPassAsksForMoreDataAndNamesTheCamera) {
  EXPECT_EQ(CalibResultHtml("before", -3, -1.0f, "Camera 5 has too few samples"),
            "before<div>Pass 3 Failed: </div><div>&nbsp;-&nbsp;Please capture more data"
            "</div><div>&nbsp;-&nbsp;Camera 5 has too few samples");
  // A failed first pass starts the text afresh; a reason without a camera
  // only asks for more data, and the camera part is taken from where it starts.
  EXPECT_EQ(CalibResultHtml("before", -1, -1.0f, "no wand data captured"),
            "<div>Pass 1 Failed: </div><div>&nbsp;-&nbsp;Please capture more data");
  EXPECT_EQ(CalibResultHtml("", -2, -1.0f, "link lost: Camera 2 <shares> 3"),
            "<div>Pass 2 Failed: </div><div>&nbsp;-&nbsp;Please capture more data"
            "</div><div>&nbsp;-&nbsp;Camera 2 &lt;shares&gt; 3");
  EXPECT_EQ(CalibResultHtml("", -2, -1.0f, "x"), "<div>Pass 2 Failed: ");  // one character: none
}

TEST(ProgressText, ArrowsGrowEveryThreeTenthsOfASecondForTheLastBusyState) {
  EXPECT_EQ(ProgressText(true, false, false, 299999), "Capturing  >");
  EXPECT_EQ(ProgressText(true, false, false, 300000), "Capturing  > >");
  EXPECT_EQ(ProgressText(true, false, false, 600000), "Capturing  > > >");
  EXPECT_EQ(ProgressText(true, false, false, 900000), "Capturing  >");
  EXPECT_EQ(ProgressText(true, true, false, 0), "Calibrating  >");
  EXPECT_EQ(ProgressText(true, true, true, 0), "Aligning  >");
  EXPECT_EQ(ProgressText(false, false, false, 0), "");
}

}  // namespace
