// ConfigToolbar: the "Settings" dock where the operator chooses the server
// (typed, found on the network or remembered in .mcclient), the mode, the
// frame rate, post-processing, interpolation and slave mode. The main window
// asks it for the settings record just before connecting.
#pragma once

#include <QDockWidget>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "link/connection_settings.h"

class QCheckBox;
class QComboBox;
class QPushButton;
class QSpinBox;

struct ConfigToolbarOptions {
  bool slaveSupport = true;        // show "Slave Mode "
  bool alternativeServer = false;  // flags are 0xA00 instead of mode and post-processing
  std::string scanTarget = "255.255.255.255";  // whole network (loopback is asked too)
  int scanPort = kDiscoveryPort;
  void Check() const;
};

class ConfigToolbar : public QDockWidget {
  Q_OBJECT

 public:
  using Options = ConfigToolbarOptions;

  static const char* const kFindServers;

  explicit ConfigToolbar(QWidget* parent, const Options& options = Options());
  ~ConfigToolbar() override;

  // Fills the record from the widgets; false when not enabled for connecting
  // (the server is then left as it was).
  bool GetSettings();
  void SetMode(int mode);
  const ConnectionSettings& settings() const { return settings_; }
  ConnectionSettings& settings() { return settings_; }

  // Makes `server` the first choice (others keep their order) and selects it.
  void setFirstServer(const QString& server);
  // The address a display name stands for; empty when it is no alias.
  std::string aliasAddress(const QString& name) const;

  // .mcclient: -1 when it cannot be opened, else 0.
  int Load(const std::string& path);
  bool Save(const std::string& path);

  // Whether the dock may hand out a server to connect to; the main window
  // locks the settings (greyed) while a session runs.
  bool connectEnabled() const { return widget()->isEnabled(); }
  void setConnectEnabled(bool on) { widget()->setEnabled(on); }

  // The auto-connect request the main window answers once.
  void requestConnect() { connectRequest_ = true; }
  bool connectRequested() const { return connectRequest_; }
  void clearConnectRequest() { connectRequest_ = false; }

  // Where discovery and the connection check ask (UDP).
  int scanPort() const { return options_.scanPort; }
  void setScanPort(int port) { options_.scanPort = port; }

  bool scanning() const { return scanner_.joinable() && scanBusy_; }

  QComboBox* serverBox() const { return serverBox_; }
  QCheckBox* slaveBox() const { return slaveBox_; }
  QComboBox* modeBox() const { return modeBox_; }
  QComboBox* frequencyBox() const { return frequencyBox_; }
  QComboBox* postprocessBox() const { return postprocessBox_; }
  QSpinBox* interpolateBox() const { return interpolateBox_; }
  QPushButton* saveButton() const { return saveButton_; }

 signals:
  // Discovery finished; the server box holds what was found.
  void sg_ServersFound(int count);

 public slots:
  void sl_Save();
  void sl_Slave();
  void sl_ServerValueChanged(int index);

 private:
  void buildWidgets();
  void startScan();
  void showFound(const std::vector<FoundServer>& found);
  void setServerEntries(const QStringList& entries);

  Options options_;
  ConnectionSettings settings_;
  std::map<std::string, std::string> aliases_;  // display name -> address
  bool connectRequest_ = false;
  std::thread scanner_;
  bool scanBusy_ = false;

  QComboBox* serverBox_ = nullptr;
  QCheckBox* slaveBox_ = nullptr;
  QComboBox* modeBox_ = nullptr;
  QComboBox* frequencyBox_ = nullptr;
  QComboBox* postprocessBox_ = nullptr;
  QSpinBox* interpolateBox_ = nullptr;
  QPushButton* saveButton_ = nullptr;
};
