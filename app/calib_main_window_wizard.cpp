// The guided side of the main window: the "Select Mode" dialog, the start
// modes, the wizard's "Calib" dock at the top and what the wizard asks the
// window to do as its pages are entered.
#include <QComboBox>
#include <QDockWidget>
#include <QMenuBar>
#include <QToolBar>

#include "app/calib_main_window.h"
#include "calib/calib_wizard.h"
#include "calib/pre_calib.h"
#include "trackers/tracker_bar.h"

namespace {

// The wizard's pages call the same slots the advanced window's buttons do.
class WindowWizardHost : public WizardHost {
 public:
  explicit WindowWizardHost(CalibMainWindow& window) : w_(window) {}

  bool connected() const override { return w_.session().connected(); }
  void connectTo(const QString& server) override {
    if (!server.isEmpty()) w_.settingsDock()->setFirstServer(server);
    w_.sl_Connect();
  }
  bool capturing() const override { return w_.calib().capturing; }
  void toggleCapture() override { w_.sl_Capture(); }
  void setAiming(bool on) override { w_.sl_EnableAiming(on); }
  bool calibrate(int qualityRow) override {
    w_.qualityBox()->setCurrentIndex(qualityRow);
    w_.sl_Calibrate();
    return w_.calib().calibrating;
  }
  void save() override { w_.sl_SaveCalibration(); }
  bool aligning() const override { return w_.calib().aligning; }
  void startAlignment() override { w_.sl_Align(); }
  void resetCalibration() override { w_.sl_ResetCalibrate(); }
  void refresh() override { w_.updateControls(); }
  QStringList servers() const override {
    QStringList list;
    const QComboBox* box = w_.settingsDock()->serverBox();
    for (int i = 0; i < box->count(); ++i)
      if (box->itemText(i) != QLatin1String(ConfigToolbar::kFindServers)) list << box->itemText(i);
    return list;
  }
  void findServers() override {
    QComboBox* box = w_.settingsDock()->serverBox();
    const int find = box->findText(QString::fromLatin1(ConfigToolbar::kFindServers));
    if (find >= 0) w_.settingsDock()->sl_ServerValueChanged(find);
  }

 private:
  CalibMainWindow& w_;
};

}  // namespace

void CalibMainWindow::createWizard() {
  wizard_ = new CalibWizard(this);
  wizardHost_ = std::make_unique<WindowWizardHost>(*this);
  wizard_->attach(wizardHost_.get());
  wizard_->showFeedback(feedback_);
  wizardDock_ = new QDockWidget(QStringLiteral("Calib"), this);
  wizardDock_->setObjectName(QStringLiteral("Calib"));
  wizardDock_->setWidget(wizard_);
  // Closed only through "finish" and "advanced", which restore the window.
  wizardDock_->setFeatures(QDockWidget::NoDockWidgetFeatures);
  addDockWidget(Qt::TopDockWidgetArea, wizardDock_);
  wizardDock_->hide();
  connect(wizard_, &CalibWizard::sg_Closed, this, &CalibMainWindow::closeWizard);
  connect(this, &CalibMainWindow::sg_CalibState, wizard_, &CalibWizard::sl_CalibStage);
  connect(settingsDock(), &ConfigToolbar::sg_ServersFound, wizard_,
          [this] { wizard_->setServers(wizardHost_->servers()); });

  preCalib_ = new PreCalib(this);
  connect(preCalib_, &PreCalib::sg_Done, this, &CalibMainWindow::sl_PreCalib);
}

bool CalibMainWindow::wizardShown() const { return wizardDock_ && !wizardDock_->isHidden(); }

void CalibMainWindow::sl_PreCalib(int mode) {
  if (mode == 1) {  // alignment, guided by the wizard
    sl_CalibMode(1);
    hideForWizard();
    wizard_->begin(true);
    wizardDock_->show();
    updateControls();
  } else if (mode == 2) {  // advanced: every control, no wizard
    sl_CalibMode(0);
    wizardDock_->hide();
    calibrationBar_->show();
    menuBar()->show();
    statusDock()->show();
  } else {  // calibration, guided by the wizard
    hideForWizard();
    sl_CalibMode(0);
    wizard_->begin(false);
    wizardDock_->show();
  }
  menuBarWanted_ = menuBar()->isVisible() || mode == 2;
  show();
  if (fullScreen_ == -1) {
    fullScreen_ = 0;
    sl_FullScreen();
  }
  showAlignKind();
}

void CalibMainWindow::hideForWizard() {
  for (QWidget* part : {static_cast<QWidget*>(menuBar()), static_cast<QWidget*>(calibrationBar_),
                        static_cast<QWidget*>(statusDock()), static_cast<QWidget*>(settingsDock()),
                        static_cast<QWidget*>(trackerBar_)}) {
    if (part->isHidden()) continue;
    hiddenByWizard_.emplace_back(part);
    part->hide();
  }
}

// "finish" and "advanced": the wizard goes, the window's own controls return.
void CalibMainWindow::closeWizard() {
  sl_EnableAiming(false);
  wizardDock_->hide();
  for (const QPointer<QWidget>& part : hiddenByWizard_)
    if (part && !(part == menuBar() && fullScreen_ == 1)) part->show();
  hiddenByWizard_.clear();
  // A start in the wizard never showed the right-hand docks; they are shared
  // once the layout has them back (the view is then as tall as the side).
  QTimer::singleShot(0, this, [this] {
    if (!docksShared_) shareRightDocks();
  });
  menuBarWanted_ = true;
  updateControls();
}
