// The wizard's stepping against a stand-in for the main window that counts
// what the pages ask of it, and the values "Select Mode" sends.
#include <gtest/gtest.h>

#include <QComboBox>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include "calib/calib_session.h"
#include "calib/calib_wizard.h"
#include "calib/calibration_feedback.h"
#include "calib/pre_calib.h"
#include "testing/qt_app_test.h"
#include "widgets/label_button.h"

namespace {

struct CountingHost : WizardHost {
  bool connected() const override { return online; }
  void connectTo(const QString& server) override { chosen = server, online = reachable; }
  bool capturing() const override { return capture; }
  void toggleCapture() override { capture = !capture; }
  void setAiming(bool on) override { aiming = on; }
  bool calibrate(int row) override { return quality = row, ++calibrations, online; }
  void save() override { ++saves; }
  bool aligning() const override { return align; }
  void startAlignment() override { align = true; }
  void resetCalibration() override { ++resets; }
  void refresh() override {}
  QStringList servers() const override { return {"localhost", "lab"}; }
  void findServers() override { ++scans; }

  bool online = false, reachable = true, capture = false, aiming = false, align = false;
  QString chosen;
  int quality = -1, calibrations = 0, saves = 0, resets = 0, scans = 0;
};

class CalibWizardTest : public zortest::QtAppTest {
 protected:
  CalibWizardTest() {
    wizard.attach(&host);
    wizard.showFeedback(&feedback);
    wizard.show();
  }
  void Continue(int times = 1) {
    for (int i = 0; i < times; ++i) wizard.continueButton()->click();
  }
  QStringList Servers() const {
    QStringList list;
    for (int i = 0; i < wizard.serverBox()->count(); ++i) list << wizard.serverBox()->itemText(i);
    return list;
  }
  CountingHost host;
  CalibSession session{64, 1.0f};
  CalibrationFeedback feedback{&session, nullptr};
  CalibWizard wizard{nullptr};
};

TEST_F(CalibWizardTest, CalibrationRunsPageByPageAndSavesOncePerResult) {
  EXPECT_EQ(GenericWizard::textAt({}, 2), "");
  EXPECT_EQ(GenericWizard::textAt({"a", "b"}, 7), "b");  // clamps at the last entry
  wizard.begin(false);
  EXPECT_EQ(Servers(), QStringList({"<find servers>", "localhost", "lab"}));
  wizard.serverBox()->activated(2);  // "lab" moves to the front
  EXPECT_EQ(Servers(), QStringList({"lab", "<find servers>", "localhost"}));
  wizard.serverBox()->activated(1);
  EXPECT_EQ(host.scans, 1);

  Continue(2);
  EXPECT_EQ(host.chosen, "lab");
  EXPECT_TRUE(host.aiming);
  EXPECT_FALSE(wizard.feedbackView()->isVisible());
  Continue();
  EXPECT_TRUE(host.capture && !host.aiming);
  EXPECT_TRUE(wizard.feedbackView()->isVisible());  // the capture's coverage
  Continue();
  EXPECT_FALSE(host.capture);
  wizard.qualityBox()->setCurrentIndex(1);
  Continue();
  EXPECT_EQ(host.quality, 1);
  EXPECT_FALSE(wizard.backButton()->isEnabled() || wizard.continueButton()->isVisible());

  // A failed pass keeps the page and lets the operator go back for more data.
  wizard.sl_CalibStage(-3, -1.0f);
  EXPECT_EQ(wizard.page(), 5);
  EXPECT_TRUE(wizard.backButton()->isEnabled());
  EXPECT_TRUE(wizard.passLampOn(3) && !wizard.passLampOn(4));
  EXPECT_EQ(wizard.resultLabel()->text(), "Avg. Error (-1) Calibration Failed.");
  wizard.sl_Back();
  Continue();
  EXPECT_EQ(host.calibrations, 2);
  wizard.sl_CalibStage(2, 0.5f);
  EXPECT_TRUE(wizard.passLampOn(2) && !wizard.passLampOn(3));
  EXPECT_EQ(host.saves, 0);
  wizard.sl_CalibStage(4, 0.125f);
  EXPECT_EQ(wizard.resultLabel()->text(), "Avg. Error (0.125) Calibration Succeeded!");
  EXPECT_EQ(wizard.page(), 6);
  EXPECT_EQ(host.saves, 1);

  EXPECT_TRUE(wizard.feedbackView()->isVisible());  // the run's figures
  Continue();
  EXPECT_TRUE(host.align);
  EXPECT_FALSE(wizard.feedbackView()->isVisible());
  EXPECT_FALSE(wizard.backButton()->isEnabled());
  wizard.sl_Back();
  EXPECT_EQ(wizard.page(), 6);
  EXPECT_EQ(host.saves, 1) << "entered by back";
  Continue();
  wizard.sl_CalibNum(1);
  EXPECT_EQ(wizard.alignLampOn(), 2);
  EXPECT_EQ(wizard.resultLabel()->text(), "Capturing alignment points:");
  wizard.sl_CalibNum(3);
  EXPECT_EQ(wizard.resultLabel()->text(), "Alignment Complete.");
  EXPECT_EQ(wizard.page(), 8);
  EXPECT_EQ(host.saves, 2);
  EXPECT_TRUE(wizard.finishButton()->isVisible() && !wizard.continueButton()->isVisible());
  wizard.resetButton()->click();
  EXPECT_TRUE(wizard.page() == 0 && host.resets == 1);
}

TEST_F(CalibWizardTest, AlignOnlySkipsTheCalibrationPagesBothWays) {
  wizard.begin(true);
  Continue(2);
  EXPECT_EQ(wizard.page(), 7);
  EXPECT_TRUE(host.align);
  EXPECT_EQ(host.calibrations, 0);
  wizard.sl_Back();
  EXPECT_EQ(wizard.page(), 1);
  EXPECT_EQ(host.saves, 0);

  // No server: "continue" is gone until another is chosen on page 0.
  host.online = host.reachable = false;
  wizard.begin(true);
  Continue();
  EXPECT_FALSE(wizard.continueButton()->isVisible());
}

TEST_F(CalibWizardTest, SelectModeSendsItsDeliberateValues) {
  PreCalib dialog;
  QSignalSpy done(&dialog, &PreCalib::sg_Done);
  for (int caption : {0, 1, 2}) QTest::mouseClick(dialog.caption(caption), Qt::LeftButton);
  dialog.reject();  // Escape or closing it
  QList<int> modes;
  for (const auto& args : done) modes << args[0].toInt();
  EXPECT_EQ(modes, QList<int>({0, 1, 2, 2}));
}

}  // namespace
