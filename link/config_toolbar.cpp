#include "link/config_toolbar.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>
#include <cstdio>
#include <iostream>
#include <stdexcept>

namespace {
constexpr int kDockWidth = 230;
constexpr int kInnerMinWidth = 200;
constexpr int kSpacing = 5;
}  // namespace

const char* const ConfigToolbar::kFindServers = "<find servers>";

void ConfigToolbarOptions::Check() const {
  if (scanPort <= 0 || scanPort > 65535) throw std::invalid_argument("ConfigToolbar: bad scan port");
}

ConfigToolbar::ConfigToolbar(QWidget* parent, const Options& options)
    : QDockWidget(QStringLiteral("Settings"), parent), options_(options) {
  options_.Check();
  setObjectName(QStringLiteral("Settings"));
  setFeatures(QDockWidget::DockWidgetMovable | QDockWidget::DockWidgetFloatable);
  buildWidgets();
  Load(McclientPath());
  GetSettings();
}

ConfigToolbar::~ConfigToolbar() {
  if (scanner_.joinable()) scanner_.join();  // at most the scan's one second
}

void ConfigToolbar::buildWidgets() {
  auto* inner = new QWidget(this);
  inner->setMinimumWidth(kInnerMinWidth);
  auto* layout = new QVBoxLayout(inner);
  layout->setSpacing(kSpacing);

  layout->addWidget(new QLabel(QStringLiteral("Server Address"), inner));
  serverBox_ = new QComboBox(inner);
  serverBox_->setEditable(true);
  serverBox_->setInsertPolicy(QComboBox::NoInsert);
  serverBox_->addItems({QStringLiteral("localhost"), QString::fromLatin1(kFindServers)});
  layout->addWidget(serverBox_);

  slaveBox_ = new QCheckBox(QStringLiteral("Slave Mode "), inner);
  slaveBox_->setVisible(options_.slaveSupport);
  layout->addWidget(slaveBox_);

  layout->addWidget(new QLabel(QStringLiteral("Mode"), inner));
  modeBox_ = new QComboBox(inner);
  modeBox_->addItems({"Default", "1", "2", "3", "4"});
  layout->addWidget(modeBox_);

  layout->addWidget(new QLabel(QStringLiteral("Frequency"), inner));
  frequencyBox_ = new QComboBox(inner);
  frequencyBox_->addItems({"480", "240", "120", "60", "30"});
  layout->addWidget(frequencyBox_);

  layout->addWidget(new QLabel(QStringLiteral("Post Processing"), inner));
  postprocessBox_ = new QComboBox(inner);
  postprocessBox_->addItems({"Off", "On"});
  layout->addWidget(postprocessBox_);

  layout->addWidget(new QLabel(QStringLiteral("Interpolation"), inner));
  interpolateBox_ = new QSpinBox(inner);
  interpolateBox_->setRange(0, 999);
  interpolateBox_->setSingleStep(1);
  layout->addWidget(interpolateBox_);

  saveButton_ = new QPushButton(QStringLiteral("Save Settings"), inner);
  layout->addWidget(saveButton_);
  layout->addStretch(1);
  setWidget(inner);
  setMinimumWidth(kDockWidth);

  connect(saveButton_, &QPushButton::clicked, this, &ConfigToolbar::sl_Save);
  connect(slaveBox_, &QCheckBox::clicked, this, &ConfigToolbar::sl_Slave);
  connect(serverBox_, &QComboBox::activated, this, &ConfigToolbar::sl_ServerValueChanged);
}

bool ConfigToolbar::GetSettings() {
  // A slave watches a server that another client set up: its rate, mode and
  // interpolation are not ours to choose, so the record keeps them.
  if (!slaveBox_->isChecked()) {
    if (options_.alternativeServer) {
      settings_.flags = kAlternativeServerFlags;
    } else {
      const int mode = modeBox_->currentIndex();
      settings_.flags = (mode >= 1 && mode <= 4) ? kModeBits[mode - 1] : 0;
      if (postprocessBox_->currentText() == QLatin1String("On")) settings_.flags |= kPostProcessFlag;
    }
    settings_.frequency = frequencyBox_->currentText().toFloat();
    settings_.interpolate = interpolateBox_->value();
  }
  if (!connectEnabled()) return false;
  const QString text = serverBox_->currentText();
  const std::string address = aliasAddress(text);
  settings_.server = address.empty() ? text.toStdString() : address;
  return true;
}

void ConfigToolbar::SetMode(int mode) {
  if (!connectEnabled()) return;
  for (uint32_t bits : kModeBits)
    if ((settings_.flags & bits) == bits) settings_.flags -= bits;
  if (mode >= 1 && mode <= 4) settings_.flags |= static_cast<uint32_t>(mode) << 8;
}

std::string ConfigToolbar::aliasAddress(const QString& name) const {
  const auto it = aliases_.find(name.toStdString());
  return it == aliases_.end() ? std::string() : it->second;
}

void ConfigToolbar::setServerEntries(const QStringList& entries) {
  serverBox_->clear();
  serverBox_->addItems(entries);
  serverBox_->setCurrentIndex(0);
}

void ConfigToolbar::setFirstServer(const QString& server) {
  QStringList entries{server};
  for (int i = 0; i < serverBox_->count(); ++i)
    if (serverBox_->itemText(i) != server) entries << serverBox_->itemText(i);
  setServerEntries(entries);
}

int ConfigToolbar::Load(const std::string& path) {
  const auto contents = ReadMcclient(path, std::cout, std::cerr);
  if (!contents) return -1;
  QStringList entries;
  for (const std::string& s : contents->servers) entries << QString::fromStdString(s);
  entries << QString::fromLatin1(kFindServers);
  aliases_ = contents->aliases;
  setServerEntries(entries);
  if (contents->modeIndex && *contents->modeIndex >= 0 && *contents->modeIndex < modeBox_->count())
    modeBox_->setCurrentIndex(*contents->modeIndex);
  if (contents->frequencyIndex) frequencyBox_->setCurrentIndex(*contents->frequencyIndex);
  if (contents->postprocessIndex) postprocessBox_->setCurrentIndex(*contents->postprocessIndex);
  if (contents->interpolate) interpolateBox_->setValue(*contents->interpolate);
  return 0;
}

bool ConfigToolbar::Save(const std::string& path) {
  std::printf("saving current config: %s\n", path.c_str());
  McclientChoices choices;
  choices.currentServer = serverBox_->currentText().toStdString();
  for (int i = 0; i < serverBox_->count(); ++i)
    choices.serverEntries.push_back(serverBox_->itemText(i).toStdString());
  choices.aliases = aliases_;
  choices.modeText = modeBox_->currentText().toStdString();
  choices.frequencyText = frequencyBox_->currentText().toStdString();
  choices.postprocessIndex = postprocessBox_->currentIndex();
  choices.interpolate = interpolateBox_->value();
  return WriteMcclient(path, choices);
}

void ConfigToolbar::sl_Save() { Save(McclientPath()); }

void ConfigToolbar::sl_Slave() {
  // Mode, rate and interpolation belong to the driving client in slave mode.
  const bool own = !slaveBox_->isChecked();
  modeBox_->setEnabled(own);
  frequencyBox_->setEnabled(own);
  postprocessBox_->setEnabled(own);
  interpolateBox_->setEnabled(own);
}

void ConfigToolbar::sl_ServerValueChanged(int index) {
  if (serverBox_->itemText(index) == QLatin1String(kFindServers)) startScan();
}

// The scan waits up to a second for answers; it runs beside the event loop
// so the window stays responsive, and its result comes back as a queued call.
void ConfigToolbar::startScan() {
  if (scanBusy_) return;
  if (scanner_.joinable()) scanner_.join();
  scanBusy_ = true;
  serverBox_->setEnabled(false);
  serverBox_->setEditText(QStringLiteral("searching..."));
  scanner_ = std::thread([this, target = options_.scanTarget, port = options_.scanPort] {
    auto found = ScanServers(target, port, "configtoolbar");
    QMetaObject::invokeMethod(
        this, [this, found = found.value_or(std::vector<FoundServer>{})] { showFound(found); },
        Qt::QueuedConnection);
  });
}

void ConfigToolbar::showFound(const std::vector<FoundServer>& found) {
  scanBusy_ = false;
  aliases_.clear();
  QStringList entries;
  for (const FoundServer& server : found) {
    if (!server.displayName.empty()) aliases_[server.displayName] = server.address;
    entries << QString::fromStdString(server.displayName.empty() ? server.address
                                                                 : server.displayName);
  }
  if (entries.isEmpty()) entries << QStringLiteral("localhost");
  entries << QString::fromLatin1(kFindServers);
  setServerEntries(entries);
  serverBox_->setEnabled(true);
  emit sg_ServersFound(static_cast<int>(found.size()));
}
