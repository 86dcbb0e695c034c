#include "calib/calib_wizard.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "calib/calibration_feedback.h"
#include "widgets/embedded_images.h"

const char* const CalibWizard::kFindServers = "<find servers>";

namespace {

constexpr char kGrey[] = "#777";
constexpr char kGreen[] = "#6d6";

// Which of the seven details and hints stands beside each of the nine pages.
constexpr int kDetailOf[CalibWizard::kPages] = {0, 0, 1, 2, 3, 4, 5, 6, 6};
constexpr int kHintOf[CalibWizard::kPages] = {0, 0, 1, 2, 2, 3, 4, 5, 6};

QLabel* Coloured(QWidget* parent, const char* colour) {
  auto* label = new QLabel(parent);
  label->setWordWrap(true);
  label->setStyleSheet(QStringLiteral("color: %1").arg(QLatin1String(colour)));
  return label;
}

}  // namespace

CalibWizard::CalibWizard(QWidget* parent) : GenericWizard(parent, kPages) {
  titles = {"Select the ZOR Server.",
            "Connect the wand to the controller.",
            "Aim the cameras at the capture space if needed, and click \"continue\" to start "
            "capturing.",
            "The system is now capturing the movement of the wand.  Click \"continue\" when done.",
            "Capture complete, click \"continue\" to start calibrating.",
            "Please wait while the system Calibrates.",
            "The System is Calibrated.  You may quit at this time or click \"continue\" to align.",
            "Move the wand to the locations specified below.",
            "The Alignment has been Saved.  Calibration is Finished."};
  details = {"This wizard will guide you through the calibration and alignment of the capture "
             "space.\nBe sure that the Wand is connected to the Controller, and that the "
             "Controller is turned on.",
             "Cameras should be aimed in way that maximizes coverage of the capture space.  If "
             "you are unsure how best to aim the cameras, simply place the wand in the center of "
             "the capture area and aim each camera directly at it.",
             "Move the wand around in the area you will be capturing motion in.  Keep the wand as "
             "visible as possible to the cameras -- upright and away from your body.",
             "",
             "",
             "",
             "The alignment can be run again without affecting the calibration by running the "
             "Align client."};
  for (const char* action : {"Aim Cameras", "Start Capturing", "Calibrate",
                             "Save Calibration and Begin Alignment",
                             "Save Calibration and Begin Alignment", "Save Alignment"})
    hints << QStringLiteral("click NEXT to ") + QLatin1String(action);
  hints << QStringLiteral("click FINISH to Close");

  QVBoxLayout* area = pageArea();
  detail_ = Coloured(this, kGrey);
  area->addWidget(detail_);
  serverBox_ = new QComboBox(this);
  serverBox_->setEditable(true);
  serverBox_->setObjectName(QStringLiteral("server"));
  serverBox_->setMaximumWidth(420);
  serverBox_->addItem(QString::fromLatin1(kFindServers));
  connect(serverBox_, &QComboBox::activated, this, &CalibWizard::sl_ServerValueChanged);
  area->addWidget(serverBox_);

  // The calibration quality, chosen before the calibration starts.
  qualityRow_ = new QWidget(this);
  auto* qualityLayout = new QHBoxLayout(qualityRow_);
  qualityLayout->setContentsMargins(0, 0, 0, 0);
  qualityLayout->addWidget(new QLabel(QStringLiteral("Calibration quality:"), qualityRow_));
  qualityBox_ = new QComboBox(qualityRow_);
  qualityBox_->addItems({"Faster", "Fast", "Normal", "Slow", "Slower", "Exhaustive"});
  qualityBox_->setCurrentIndex(2);
  qualityLayout->addWidget(qualityBox_);
  qualityLayout->addStretch(1);
  area->addWidget(qualityRow_);

  const auto lampRow = [&](QLabel** lamps, int count) {
    auto* row = new QWidget(this);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    for (int i = 0; i < count; ++i) layout->addWidget(lamps[i] = new QLabel(row));
    layout->addStretch(1);
    area->addWidget(row);
    return row;
  };
  passRow_ = lampRow(passLamps_, 4);
  alignRow_ = lampRow(alignLamps_, 3);
  result_ = Coloured(this, kGrey);
  area->addWidget(result_);
  connection_ = Coloured(this, kGrey);
  area->addWidget(connection_);
  area->addStretch(1);
  hint_ = Coloured(this, kGrey);
  area->addWidget(hint_);
  showPassLamps(0);
  showAlignLamps(0);
  setLampsVisible(false, false);
  result_->hide();
  enterPage();
}

void CalibWizard::begin(bool alignOnly) {
  alignOnly_ = alignOnly;
  rewind(-1);
  if (host_) setServers(host_->servers());
  pageEntered();
}

void CalibWizard::setServers(const QStringList& servers) {
  serverBox_->clear();
  serverBox_->addItem(QString::fromLatin1(kFindServers));
  for (const QString& server : servers)
    if (server != QLatin1String(kFindServers)) serverBox_->addItem(server);
  serverBox_->setCurrentIndex(serverBox_->count() > 1 ? 1 : 0);
}

// "<find servers>" asks the network; any other choice moves to the front.
void CalibWizard::sl_ServerValueChanged(int index) {
  const QString chosen = serverBox_->itemText(index);
  if (chosen == QLatin1String(kFindServers)) {
    if (host_) host_->findServers();
    return;
  }
  QStringList entries{chosen};
  for (int i = 0; i < serverBox_->count(); ++i)
    if (serverBox_->itemText(i) != chosen) entries << serverBox_->itemText(i);
  serverBox_->clear();
  serverBox_->addItems(entries);
  serverBox_->setCurrentIndex(0);
}

void CalibWizard::resetPressed() {
  page_ = 0;
  direction_ = -1;
  if (host_) {
    host_->resetCalibration();
    host_->refresh();
  }
  pageEntered();
}

void CalibWizard::pageEntered() {
  if (!host_) return;
  // Align-only: the calibration pages are passed over both ways.
  if (alignOnly_ && page_ == 2) page_ = 7;
  if (alignOnly_ && page_ == 6) page_ = 1;
  enterPage();
}

void CalibWizard::showFeedback(const CalibrationFeedback* feedback) {
  feedback_ = new CalibrationFeedbackView(feedback, this);
  feedback_->setMinimumHeight(160);
  // Under the lamps and the result line, above the connection and the hint.
  pageArea()->insertWidget(pageArea()->indexOf(connection_), feedback_);
  placeFeedback();
}

void CalibWizard::placeFeedback() {
  if (!feedback_) return;
  // Capture and quality pages: the coverage; calibrating: the coverage until
  // the run's figures replace it; saved: the figures.
  feedback_->setVisible(page_ >= 3 && page_ <= 6);
  feedback_->setParts(page_ <= 5, page_ >= 5);
}

void CalibWizard::enterPage() {
  titleLabel()->setText(textAt(titles, page_));
  placeFeedback();
  detail_->setText(textAt(details, kDetailOf[page_]));
  detail_->setVisible(!detail_->text().isEmpty());
  hint_->setText(textAt(hints, kHintOf[page_]));
  serverBox_->setVisible(page_ == 0);
  qualityRow_->setVisible(page_ == 4);
  if (!host_) return;
  if (page_ <= 3) host_->setAiming(page_ == 2);
  switch (page_) {
    case 0:
      setLampsVisible(false, false);
      result_->hide();
      continueButton()->setEnabled(true);
      connection_->clear();
      break;
    case 1: {
      const QString server = serverBox_->currentText();
      if (!host_->connected() && server != QLatin1String(kFindServers)) host_->connectTo(server);
      setConnectionText(host_->connected());
      continueButton()->setVisible(host_->connected());
      break;
    }
    case 2:
      setConnectionText(host_->connected());
      if (host_->capturing()) host_->toggleCapture();
      break;
    case 3:
      if (!host_->capturing()) host_->toggleCapture();
      break;
    case 4:
      backButton()->setEnabled(true);
      continueButton()->setEnabled(host_->connected());
      if (host_->capturing()) host_->toggleCapture();
      break;
    case 5:
      if (direction_ != 1) break;
      setLampsVisible(true, false);
      result_->show();
      showPassLamps(0);
      result_->clear();
      continueButton()->hide();
      // Nothing to calibrate from (no capture, no server): the operator goes back.
      backButton()->setEnabled(!host_->calibrate(qualityBox_->currentIndex()));
      if (backButton()->isEnabled()) result_->setText(QStringLiteral(" Calibration Failed."));
      break;
    case 6:
      backButton()->setEnabled(true);
      continueButton()->show();
      setLampsVisible(false, false);
      result_->hide();
      if (direction_ == 1) host_->save();
      break;
    case 7:
      backButton()->setEnabled(false);
      setLampsVisible(false, true);
      result_->show();
      alignShown_ = -2;
      sl_CalibNum(0);
      if (!host_->aligning()) host_->startAlignment();
      break;
    case 8:
      backButton()->setEnabled(true);
      if (direction_ == 1) host_->save();
      continueButton()->hide();
      finishButton()->show();
      break;
  }
}

void CalibWizard::refresh() {
  if (!host_) return;
  const bool connected = host_->connected();
  if (page_ >= 1) setConnectionText(connected);
  // Without the server nothing on the following pages can work.
  if (!connected && page_ >= 1 && page_ <= 7) continueButton()->hide();
  if (!connected && page_ == 5) backButton()->setEnabled(true);
}

void CalibWizard::setConnectionText(bool connected) {
  connection_->setText(connected ? QStringLiteral("Connected") : QStringLiteral("Disconnected"));
  connection_->setStyleSheet(QStringLiteral("color: %1").arg(QLatin1String(connected ? kGreen : kGrey)));
}

void CalibWizard::sl_CalibStage(int pass, float error) {
  QString text = QStringLiteral("Avg. Error (%1)").arg(QString::number(error, 'g'));
  if (pass == 4) text += QStringLiteral(" Calibration Succeeded!");
  if (pass < 0) text += QStringLiteral(" Calibration Failed.");
  showPassLamps(pass < 0 ? -pass : pass);
  result_->setText(text);
  if (pass < 0) backButton()->setEnabled(true);
  if (pass == 4) {
    backButton()->setEnabled(true);
    continueButton()->setEnabled(true);
    // Only a calibration the wizard waits for moves it on (and saves it).
    if (page_ == 5) sl_Next();
  }
}

void CalibWizard::sl_CalibNum(int n) {
  if (n == alignShown_) return;
  showAlignLamps(n);
  result_->setText(n < 3 ? QStringLiteral("Capturing alignment points:")
                         : QStringLiteral("Alignment Complete."));
  // The third point completes the alignment: page 8 saves it.
  if (n > 2 && page_ == 7) sl_Next();
}

void CalibWizard::showPassLamps(int lit) {
  if (lit == passShown_) return;
  passShown_ = lit;
  for (int k = 1; k <= 4; ++k)
    passLamps_[k - 1]->setPixmap(LoadPixmap(QStringLiteral("cp%1%2.png").arg(k).arg(lit >= k ? "On" : "Off")));
}

void CalibWizard::showAlignLamps(int n) {
  alignShown_ = n;
  for (int k = 1; k <= 3; ++k)
    alignLamps_[k - 1]->setPixmap(
        LoadPixmap(QStringLiteral("ap%1%2.png").arg(k).arg(n == k - 1 ? "On" : "Off")));
}

void CalibWizard::setLampsVisible(bool pass, bool align) {
  passRow_->setVisible(pass);
  alignRow_->setVisible(align);
}
