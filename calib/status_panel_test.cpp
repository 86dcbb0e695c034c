// The status panel's server table for the mode flags, and its tags rendered
// with their styles.
#include <gtest/gtest.h>

#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextEdit>

#include "calib/calibration_feedback.h"
#include "calib/status_panel.h"
#include "testing/qt_app_test.h"

namespace {


ConnectionSettings Settings(uint32_t flags) {
  ConnectionSettings s;
  s.server = "lab";
  s.frequency = 240.0f;
  s.flags = flags;
  s.interpolate = 3;
  return s;
}

QString ModeOf(uint32_t flags) {
  const QString table = ServerStatusTable(Settings(flags));
  const int at = table.indexOf("<key>Mode:</key><td><val>");
  return table.mid(at + 25, table.indexOf("</val>", at) - at - 25);
}

TEST(ServerStatusTableTest, ModeNumberFromTheFlags) {
  const std::pair<uint32_t, const char*> modes[] = {
      {0, "0"}, {0x100, "1"}, {0x200, "2"}, {0x300, "3"}, {0x400, "4"}, {0x700, "4"}};
  for (const auto& [flags, mode] : modes) EXPECT_EQ(ModeOf(flags), mode) << flags;
}

TEST(ServerStatusTableTest, WholeTable) {
  EXPECT_EQ(ServerStatusTable(Settings(0x10)),
            "<br><table width=\"100%\" cellpadding='0' cellspacing='0' border='0'><tr><td "
            "colspan=\"2\" bgcolor='#ccc'><heading>Server Status</heading></td></tr>"
            "<tr><td><key>Server:</key><td><val>lab</val>"
            "<tr><td><key>Frequency:</key><td><val>240</val>"
            "<tr><td><key>Mode:</key><td><val>0</val>"
            "<tr><td><key>Postprocess:</key><td><val>on</val>"
            "<tr><td><key>Interpolate:</key><td><val>3</val></table>");
  ConnectionSettings odd = Settings(0);
  odd.frequency = 59.94f;
  odd.server = "a<b";
  const QString table = ServerStatusTable(odd);
  EXPECT_TRUE(table.contains("<val>59.94</val>"));
  EXPECT_TRUE(table.contains("<val>a&lt;b</val>"));  // a name never breaks the markup
  EXPECT_TRUE(table.contains("<val>off</val>"));
}

TEST(StatusTagsTest, TagsBecomeClassedElements) {
  EXPECT_EQ(TranslateStatusTags("<heading>H</heading><key>k</key><VAL>v</VAL><normal>n</normal>"),
            "<div class=\"heading\">H</div><span class=\"key\">k</span>"
            "<span class=\"val\">v</span><span class=\"normal\">n</span>");
  EXPECT_EQ(TranslateStatusTags("<div><strong>x</strong></div>"), "<div><strong>x</strong></div>");
}

using StatusPanelTest = zortest::QtAppTest;

// The character format at the first occurrence of `text` in the view.
QTextCharFormat FormatAt(QTextEdit* view, const QString& text) {
  QTextCursor found = view->document()->find(text);
  EXPECT_FALSE(found.isNull()) << text.toStdString();
  QTextCursor at(view->document());
  at.setPosition(found.selectionStart() + 1);
  return at.charFormat();
}

TEST_F(StatusPanelTest, ShowsTextThenTheServerTableInStyle) {
  StatusPanel panel(nullptr);
  panel.showServer(Settings(0x300));
  EXPECT_TRUE(panel.html().startsWith("<br><table"));  // empty status text
  panel.setStatusText("<div><strong><normal>Pass 2 OK:  </normal></strong>(0.35)"
                      "<error>Camera 5</error><dval>done</dval>");
  EXPECT_TRUE(panel.html().startsWith("<div><strong><normal>Pass 2 OK"));
  EXPECT_TRUE(panel.html().contains("<val>3</val>"));
  panel.setResultText("<table>figures</table>");  // right under the pass lines
  EXPECT_TRUE(panel.html().contains("(0.35)<error>Camera 5</error><dval>done</dval><table>figures</table><br><table"));

  QTextEdit* view = panel.view();
  EXPECT_EQ(view->documentTitle(), "Calibration Status");
  EXPECT_EQ(FormatAt(view, "Server Status").fontWeight(), QFont::Bold);
  EXPECT_EQ(FormatAt(view, "Server Status").fontPointSize(), 12);
  EXPECT_EQ(FormatAt(view, "Frequency:").fontWeight(), QFont::Bold);
  EXPECT_EQ(FormatAt(view, "lab").foreground().color(), QColor("blue"));
  EXPECT_EQ(FormatAt(view, "Camera 5").foreground().color(), QColor("#c22"));
  EXPECT_EQ(FormatAt(view, "done").foreground().color(), QColor("#0c0"));
  EXPECT_EQ(FormatAt(view, "Pass 2").foreground().color(), QColor("#333"));
  EXPECT_EQ(FormatAt(view, "Pass 2").fontPointSize(), 9);
}

// The coverage table names the camera the solver would refuse and the pairs
// that share too few frames, the pair matrix reads the right cells, and the
// result table keeps cameras the run left out.
TEST(FeedbackTablesTest, MarkWhatTheSolverWouldRefuse) {
  CaptureCoverage coverage;
  coverage.valid = true;
  coverage.summary = {3, 50, 10, 20, 0.2f};
  coverage.cameras = {{0, 50, 400, 1, {1, 0}, 0.5f, 0.25f}, {1, 48, 380, 1, {3, 0}, 0.5f, 0.5f},
                      {2, 4, 20, 0, {0, 0}, 0.1f, 0.0f}};
  coverage.shared = {0, 45, 4, 45, 0, 12345, 4, 12345, 0};
  const QString table = CoverageTable(coverage);
  EXPECT_TRUE(table.contains("(2 of 3 cameras ready)"));
  EXPECT_TRUE(table.contains("<error>no (4/10 frames)</error>"));
  EXPECT_TRUE(table.contains("Pairs below 20 shared frames: 1-3 (4)"));
  EXPECT_TRUE(table.contains("<td align='right'><val>45</val><td align='right'><error>4</error><tr>"));
  EXPECT_TRUE(table.contains("<val>45</val><td><td align='right'><val>12k</val>"));

  CalibrationFigures figures;
  figures.summary = {2, ZOR_GRADE_FAIR, 0.3f, 500, 0.4f, 50, 1};
  figures.cameras = {{0, 1, 400, 0.25f, 0.12f, 0.01f}, {1, 0, 0, 0, 0, 0}};
  const QString result = ResultTable(figures);
  EXPECT_TRUE(result.contains("<error>fair</error>"));
  EXPECT_TRUE(result.contains("500.0 mm &plusmn; 0.40 mm"));
  EXPECT_TRUE(result.contains("<val>400</val><td><val>0.250</val><td><val>0.12</val>"));
  EXPECT_TRUE(result.contains("<val>2</val><td colspan=\"3\"><error>not calibrated</error>"));
}

}  // namespace
