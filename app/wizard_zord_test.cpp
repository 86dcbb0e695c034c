// The wizard as a new operator meets it, against a real zord started blank:
// "Select Mode", then "continue" page by page through capture, calibration,
// saving and the alignment on the frame lying on the floor; then the
// alignment wizard alone on the calibrated server. As in scripts/demo,
// nobody drives the room: zord's operator follows the client (waves the wand
// while the capture runs, rests it where the alignment asks). Heavy (SERIAL).
#include <QLabel>
#include <QMenuBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QToolBar>

#include "app/calibration_zord_support.h"
#include "calib/calib_wizard.h"
#include "calib/calibration_feedback.h"
#include "view/gl_view.h"
#include "calib/pre_calib.h"
#include "widgets/label_button.h"

namespace {

using zortest::RunUntil;
using zortest::Truth;
using Eigen::Vector3d;

class WizardZordTest : public zortest::CalibrationZordTest {
 protected:
  // A window as the program opens it without a start mode: "Select Mode" only.
  std::unique_ptr<CalibMainWindow> Open(const std::string& address) {
    auto window = OpenWindow(address, false, -1);
    EXPECT_TRUE(window->preCalib()->isVisible() && !window->isVisible());
    return window;
  }
  static void Continue(CalibMainWindow& window, int page) {
    ASSERT_TRUE(window.wizard()->continueButton()->isVisible() &&
                window.wizard()->continueButton()->isEnabled())
        << window.wizard()->page();
    QTest::mouseClick(window.wizard()->continueButton(), Qt::LeftButton);
    ASSERT_EQ(window.wizard()->page(), page);
  }
  static void Page(CalibMainWindow& window) {
    Shot(window, QStringLiteral("wizard-%1.png").arg(window.wizard()->page()).toUtf8().constData());
  }
  // The operator rests the wand on the frame's three LEDs in turn; the wizard
  // lights the lamp of the point it waits for and moves to page 8 after the third.
  void AlignOnTheFrame(CalibMainWindow& window, const std::string& address) {
    CalibWizard* wizard = window.wizard();
    EXPECT_EQ(wizard->alignLampOn(), 1);
    EXPECT_EQ(wizard->resultLabel()->text(), "Capturing alignment points:");
    for (int lamp = 2; lamp <= 4; ++lamp) {
      ASSERT_TRUE(RunUntil([&] { return wizard->page() == 8 || wizard->alignLampOn() == lamp; }, 30000))
          << "point " << lamp - 1;
      if (lamp == 2) Page(window);
    }
    ASSERT_EQ(wizard->page(), 8);
    EXPECT_EQ(wizard->resultLabel()->text(), "Alignment Complete.");
    EXPECT_FALSE(Calib(window).aligning) << "saved";
    EXPECT_TRUE(wizard->finishButton()->isVisible() && !wizard->continueButton()->isVisible());
    ASSERT_NO_FATAL_FAILURE(Settle(window, address));
  }
};

TEST_F(WizardZordTest, ContinuingPageByPageCalibratesAlignsAndSavesThenAlignmentAloneKeepsIt) {
  zortest::TempDir dir;
  const std::string truthFile = dir.File("truth.json");
  auto zord = StartZord({"--truth-out", truthFile, "--operator", "follow"});
  const Truth truth(truthFile);
  const std::string address = zord->address();
  std::vector<Vector3d> calibrated;
  {
    auto window = Open(address);
    Shot(*window->preCalib(), "select-mode.png");
    QTest::mouseClick(window->preCalib()->caption(0), Qt::LeftButton);
    ASSERT_TRUE(window->isVisible() && window->wizardShown());
    EXPECT_TRUE(window->menuBar()->isHidden() && window->calibrationBar()->isHidden());
    window->resize(1000, 800);
    CalibWizard* wizard = window->wizard();
    CalibSession& calib = Calib(*window);
    Page(*window);

    ASSERT_NO_FATAL_FAILURE(Continue(*window, 1));
    ASSERT_TRUE(calib.connected()) << boxes.join("\n").toStdString();
    Page(*window);
    ASSERT_NO_FATAL_FAILURE(Continue(*window, 2));
    EXPECT_TRUE(window->aiming());
    ASSERT_NO_FATAL_FAILURE(Frames(*window, 100));
    Page(*window);
    ASSERT_NO_FATAL_FAILURE(Continue(*window, 3));
    EXPECT_TRUE(calib.capturing && !window->aiming());
    const int frames = static_cast<int>(8 * calib.frequency);
    ASSERT_TRUE(RunUntil([&] { return calib.lastFrame - calib.captureStart >= frames; }, 60000));
    // The capture's coverage on the page and over each camera in the 2D view.
    ASSERT_TRUE(RunUntil([&] { return window->view()->calibration.showCoverage; }, 10000));
    EXPECT_EQ(window->view()->calibration.coverage.size(), 8u);
    EXPECT_TRUE(wizard->feedbackView()->isVisible());
    EXPECT_TRUE(wizard->feedbackView()->toPlainText().contains("8 of 8 cameras ready"))
        << wizard->feedbackView()->toPlainText().toStdString();
    Page(*window);
    window->view()->sl_View2d();
    Shot(*window, "capture-coverage-2d.png");
    window->view()->sl_View2d();
    ASSERT_NO_FATAL_FAILURE(Continue(*window, 4));
    EXPECT_TRUE(!calib.capturing && calib.captured);
    Page(*window);

    // The passes light their lamps in order; the fourth saves and moves on.
    ASSERT_NO_FATAL_FAILURE(Continue(*window, 5));
    ASSERT_TRUE(calib.calibrating);
    EXPECT_EQ(calib.quality, 400);  // "Normal"
    QSignalSpy passes(window.get(), &CalibMainWindow::sg_CalibState);
    std::vector<int> lit;
    const auto lamps = [&] {
      int n = 0;
      while (n < 4 && wizard->passLampOn(n + 1)) ++n;
      if (lit.empty() || lit.back() != n) lit.push_back(n);
      if (n == 1 && lit.size() == 2) Page(*window);
      return wizard->page() == 6;
    };
    ASSERT_TRUE(RunUntil(lamps, 170000)) << wizard->resultLabel()->text().toStdString();
    EXPECT_TRUE(std::is_sorted(lit.begin(), lit.end()) && lit.back() == 4);
    ASSERT_EQ(passes.size(), 4);
    for (int pass = 1; pass <= 4; ++pass) EXPECT_EQ(passes[pass - 1][0].toInt(), pass);
    EXPECT_TRUE(calib.calibrated && calib.calibrationSaved);
    // The run's figures on the page and under the pass lines; the coverage is spent.
    ASSERT_TRUE(RunUntil([&] { return !window->feedback()->resultText().isEmpty(); },
                         CalibrationFeedback::kResultWaitMs));
    EXPECT_TRUE(wizard->feedbackView()->toPlainText().contains("Calibration Result"));
    EXPECT_FALSE(wizard->feedbackView()->toPlainText().contains("Wand Coverage"));
    EXPECT_TRUE(window->statusPanel()->html().contains(window->feedback()->resultText()));
    EXPECT_FALSE(window->view()->calibration.showCoverage);
    Page(*window);

    ASSERT_NO_FATAL_FAILURE(Continue(*window, 7));
    ASSERT_TRUE(calib.aligning);
    ASSERT_NO_FATAL_FAILURE(AlignOnTheFrame(*window, address));
    Page(*window);
    ExpectCamerasOnTruth(*window, truth, 10.0);
    calibrated = CameraPositions(*window);

    QTest::mouseClick(wizard->finishButton(), Qt::LeftButton);
    EXPECT_FALSE(window->wizardShown());
    EXPECT_FALSE(window->menuBar()->isHidden() || window->calibrationBar()->isHidden());
    EXPECT_TRUE(window->feedback()->coverageText().isEmpty());
    Shot(*window, "calibration-result.png");
  }

  // The second caption: connect, straight on to the alignment, page 8; the
  // calibration is the one saved above.
  auto window = Open(address);
  QTest::mouseClick(window->preCalib()->caption(1), Qt::LeftButton);
  ASSERT_TRUE(window->wizardShown() && window->wizard()->alignOnly());
  ASSERT_NO_FATAL_FAILURE(Continue(*window, 1));
  ASSERT_TRUE(window->session().connected());
  ASSERT_NO_FATAL_FAILURE(Continue(*window, 7));
  ASSERT_TRUE(Calib(*window).aligning);
  ASSERT_NO_FATAL_FAILURE(AlignOnTheFrame(*window, address));
  EXPECT_EQ(Calib(*window).quality, 0) << "never calibrated";
  RunUntil([&] {
    const std::vector<Vector3d> now = CameraPositions(*window);
    for (size_t i = 0; i < now.size() && i < calibrated.size(); ++i)
      if ((now[i] - calibrated[i]).norm() > 6.0) return false;
    return now.size() == calibrated.size();
  }, 8000);
  const std::vector<Vector3d> after = CameraPositions(*window);
  ASSERT_EQ(after.size(), calibrated.size());
  // Each alignment takes its three points from single frames, each known to a
  // few tenths of a millimetre: over arms of half a metre that turns a camera
  // 3-4 m away by up to a few millimetres between two alignments.
  for (size_t i = 0; i < after.size(); ++i) EXPECT_LT((after[i] - calibrated[i]).norm(), 6.0) << i;
  EXPECT_TRUE(boxes.isEmpty()) << boxes.join("\n").toStdString();
}

}  // namespace
