// PreCalib: the "Select Mode" dialog shown at start. Three clickable
// captions choose how to go on: the calibration wizard, the alignment
// wizard or the advanced window without a wizard. The values sent are
// 0 (calibration), 1 (alignment) and 2 (advanced), which is not the order
// of the captions.
#pragma once

#include <QDialog>

class LabelButton;

class PreCalib : public QDialog {
  Q_OBJECT

 public:
  explicit PreCalib(QWidget* parent = nullptr);

  LabelButton* caption(int index) const { return captions_[index]; }

  // Escape and closing the dialog choose the advanced window, so the
  // program never ends up without a window.
  void reject() override { sl_NoWizard(); }

 signals:
  void sg_Done(int mode);

 public slots:
  void sl_Wizard();
  void sl_NoWizard();
  void sl_Align();

 private:
  LabelButton* captions_[3] = {};
};
