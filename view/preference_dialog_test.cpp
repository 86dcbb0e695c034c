// The preferences dialog over a scene: what it applies, refuses and shows.
#include <gtest/gtest.h>

#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QSlider>
#include <QSpinBox>
#include <QTimer>

#include "view/preference_dialog.h"
#include "view/scene_view.h"
#include "view/view_test_support.h"

namespace {

class Preferences : public testing::Test {
 protected:
  void SetUp() override {
    EnsureTestApp();
    dialog_ = std::make_unique<PreferenceDialog>(nullptr, &scene_);
  }
  SceneView scene_;
  std::unique_ptr<PreferenceDialog> dialog_;
};

TEST_F(Preferences, FilterFrequencyUpTo240OrTheMessageAndRestored) {
  EXPECT_EQ(dialog_->frequencyEdit()->text(), "16");  // starts from the view
  for (const char* bad : {"-1", "300", "abc", "12.345"}) {
    dialog_->frequencyEdit()->setText(bad);
    QString seen;
    QTimer::singleShot(0, [&seen] {
      if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
        seen = box->windowTitle() + "|" + box->text();
        box->accept();
      }
    });
    dialog_->sl_ApplyFilter();
    EXPECT_EQ(seen, "Invalid Input|Filter Values in Hz must range from 0.0 to 160.0.") << bad;
    EXPECT_FLOAT_EQ(scene_.markerStore().filterFrequency(), 16) << bad;
    EXPECT_EQ(dialog_->frequencyEdit()->text(), "16") << bad;
  }
  dialog_->frequencyEdit()->setText("200");
  dialog_->sl_ApplyFilter();
  EXPECT_FLOAT_EQ(scene_.markerStore().filterFrequency(), 200);
}

TEST_F(Preferences, BrushAndHistory) {
  EXPECT_EQ(dialog_->fadeBox()->value(), scene_.markerStore().fadeCount());
  dialog_->fadeBox()->setValue(240);
  dialog_->historyBox()->setValue(600);
  dialog_->sl_ApplyBrush();
  EXPECT_EQ(scene_.markerStore().fadeCount(), 240);
  EXPECT_EQ(scene_.markerStore().maxHistory(), 600);
  dialog_->setMaxHistory(0);
  EXPECT_EQ(scene_.markerStore().maxHistory(), 600);
  dialog_->setFade(0);  // fading at once is a choice, kept as given
  EXPECT_EQ(scene_.markerStore().fadeCount(), 0);
  dialog_->sl_DefaultBrush();
  EXPECT_EQ(dialog_->fadeBox()->value(), 480);
}

TEST_F(Preferences, SliderShowsAndApplyWrites) {
  dialog_->sl_CondChanged(250);
  EXPECT_EQ(dialog_->conditionValue()->text(), "250");
  EXPECT_FLOAT_EQ(scene_.markerStore().conditionCutoff(), 0);  // only on Apply
  dialog_->conditionSlider()->setValue(250);
  dialog_->sl_ApplyCondition();
  EXPECT_FLOAT_EQ(scene_.markerStore().conditionCutoff(), 250);
  dialog_->sl_DefaultMisc();
  EXPECT_FLOAT_EQ(scene_.markerStore().conditionCutoff(), 100);
}

TEST_F(Preferences, ReadoutsFollowTheView) {
  std::vector<ZORMarker> markers(2);
  markers[0].cond = 10, markers[1].cond = 15;
  scene_.markerStore().SetBrush(kBrushLines);
  scene_.markerStore().SetMaxHistory(2048);
  scene_.markerStore().Process(markers, 480);
  dialog_->updateReadouts();
  EXPECT_EQ(dialog_->conditionLabel()->text(), "Cond:12.5");
  EXPECT_EQ(dialog_->historyLabel()->text(), "Max History (Approx: 48KB):");  // 2 x 2048 x 12 B
}

}  // namespace
