// The File menu's own entries: exporting the server's calibration for other
// tools.
#include <QAction>
#include <QFileDialog>
#include <QMenu>
#include <QStatusBar>

#include "app/calib_main_window.h"
#include "app/message_box.h"
#include "link/calibration_export.h"

void CalibMainWindow::addFileEntries() {
  // Above Exit, set apart from it, as file menus put their last entry.
  QAction* exportAction = makeEntry("Export Calibration...", kExportCalibration, false, QKeySequence(),
                                    &CalibMainWindow::sl_ExportCalibration);
  fileMenu_->insertAction(exitAction_, exportAction);
  fileMenu_->insertSeparator(exitAction_);
}

void CalibMainWindow::sl_ExportCalibration() {
  const QString file =
      chooseExportFile ? chooseExportFile()
                       : QFileDialog::getSaveFileName(this, QStringLiteral("Export Calibration"),
                                                      QStringLiteral("calibration.yaml"),
                                                      QStringLiteral("OpenCV YAML (*.yaml *.yml);;JSON (*.json)"));
  if (file.isEmpty()) return;
  std::string error;
  if (!ExportServerCalibration(file.toStdString(), &error)) {
    ShowWarning(this, QStringLiteral("Export Calibration"), QString::fromStdString(error));
    return;
  }
  statusBar()->showMessage(QStringLiteral("calibration written to %1").arg(file), 5000);
}
