#include "calib/pre_calib.h"

#include <QVBoxLayout>

#include "widgets/label_button.h"

PreCalib::PreCalib(QWidget* parent) : QDialog(parent) {
  setWindowTitle(QStringLiteral("Select Mode"));
  setFont(QFont(QStringLiteral("Helvetica")));
  static const char* const kCaptions[3] = {
      "<div align=\"left\"><font size=\"4\"><b>1. Calibration Wizard:</b></font> \n<font "
      "size=\"3\">The wizard will guide you through the process of calibration and "
      "alignment.</font></div>",
      "<div align=\"left\"><font size=\"4\"><b>2. Alignment Wizard:</b></font> <font "
      "size=\"3\">This option skips the Calibration step, and allows you to re-align the "
      "cameras.</font></div>",
      "<div align=\"left\"><font size=\"4\"><b>3. Advanced:</b></font> <font size=\"3\">This "
      "option allows you to proceed without a wizard.</font></div>"};
  void (PreCalib::*const onClick[3])() = {&PreCalib::sl_Wizard, &PreCalib::sl_Align,
                                        &PreCalib::sl_NoWizard};
  auto* layout = new QVBoxLayout(this);
  for (int i = 0; i < 3; ++i) {
    captions_[i] = new LabelButton(this, QString::fromUtf8(kCaptions[i]));
    captions_[i]->setMinimumWidth(420);
    connect(captions_[i], &LabelButton::sg_Clicked, this, onClick[i]);
    layout->addWidget(captions_[i]);
  }
}

void PreCalib::sl_Wizard() {
  hide();
  emit sg_Done(0);
}

void PreCalib::sl_NoWizard() {
  hide();
  emit sg_Done(2);
}

void PreCalib::sl_Align() {
  hide();
  emit sg_Done(1);
}
