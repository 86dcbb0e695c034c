// CalibWizard: the nine pages that lead an operator from choosing the server
// through aiming, capturing the wand, calibrating and saving to aligning the
// capture volume. Entering a page drives the main window through WizardHost;
// the calibration passes and the count of alignment points come back through
// sl_CalibStage() and sl_CalibNum().
#pragma once

#include <QStringList>

#include "calib/generic_wizard.h"

class QComboBox;
class CalibrationFeedback;
class CalibrationFeedbackView;

// What the wizard asks of the window that shows it.
class WizardHost {
 public:
  virtual ~WizardHost() = default;
  virtual bool connected() const = 0;
  // Connects to `server` (as typed or chosen); the result shows in connected().
  virtual void connectTo(const QString& server) = 0;
  virtual bool capturing() const = 0;
  virtual void toggleCapture() = 0;
  virtual void setAiming(bool on) = 0;
  // Starts a calibration at the quality of that row of the quality chooser;
  // false when none started (nothing captured, not connected).
  virtual bool calibrate(int qualityRow) = 0;
  virtual void save() = 0;
  virtual bool aligning() const = 0;
  virtual void startAlignment() = 0;
  virtual void resetCalibration() = 0;
  virtual void refresh() = 0;
  // The servers to offer (the first is the one chosen last).
  virtual QStringList servers() const = 0;
  // Looks for servers on the network; the list comes back through
  // CalibWizard::setServers().
  virtual void findServers() = 0;
};

class CalibWizard : public GenericWizard {
  Q_OBJECT

 public:
  static constexpr int kPages = 9;
  static const char* const kFindServers;

  explicit CalibWizard(QWidget* parent);

  // The wizard acts on page entry only once it has a host.
  void attach(WizardHost* host) { host_ = host; }
  // Starts over on the first page; align-only skips the calibration pages.
  void begin(bool alignOnly);
  bool alignOnly() const { return alignOnly_; }
  // After the link was lost: the connection label and what may go on.
  void refresh();
  // Shows the feedback's coverage on the capture pages and the run's figures
  // on the result pages.
  void showFeedback(const CalibrationFeedback* feedback);
  // Refills the server chooser ("<find servers>" first).
  void setServers(const QStringList& servers);

  QComboBox* serverBox() const { return serverBox_; }
  QComboBox* qualityBox() const { return qualityBox_; }
  QLabel* connectionLabel() const { return connection_; }
  QLabel* resultLabel() const { return result_; }
  QLabel* detailLabel() const { return detail_; }
  QLabel* hintLabel() const { return hint_; }
  CalibrationFeedbackView* feedbackView() const { return feedback_; }
  bool passLampOn(int k) const { return passShown_ >= k; }
  int alignLampOn() const { return alignShown_ < 0 ? 0 : alignShown_ + 1; }

 public slots:
  void sl_CalibStage(int pass, float error);
  void sl_CalibNum(int n);
  void sl_ServerValueChanged(int index);

 protected:
  void pageEntered() override;
  void resetPressed() override;

 private:
  void enterPage();
  void placeFeedback();
  void showPassLamps(int lit);
  void showAlignLamps(int n);
  void setLampsVisible(bool pass, bool align);
  void setConnectionText(bool connected);

  WizardHost* host_ = nullptr;
  bool alignOnly_ = false;
  QComboBox* serverBox_ = nullptr;
  QComboBox* qualityBox_ = nullptr;
  QWidget* qualityRow_ = nullptr;
  QLabel* detail_ = nullptr;
  QLabel* hint_ = nullptr;
  QLabel* connection_ = nullptr;
  QLabel* result_ = nullptr;
  CalibrationFeedbackView* feedback_ = nullptr;
  QLabel* passLamps_[4] = {};
  QLabel* alignLamps_[3] = {};
  QWidget* passRow_ = nullptr;
  QWidget* alignRow_ = nullptr;
  int passShown_ = -1;   // lamps lit, -1 before the first draw
  int alignShown_ = -2;  // alignment points counted, -2 before the first draw
};
