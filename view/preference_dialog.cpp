#include "view/preference_dialog.h"

#include <QDoubleValidator>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QMessageBox>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QTabWidget>
#include <QVBoxLayout>

#include "view/scene_view.h"

PreferenceDialog::PreferenceDialog(QWidget* parent, SceneView* view) : QDialog(parent) {
  setWindowTitle(QStringLiteral("Preferences"));
  tabs_ = new QTabWidget(this);
  tabs_->addTab(BuildBrushes(), QStringLiteral("Brushes"));
  tabs_->addTab(BuildFilter(), QStringLiteral("Filter"));
  tabs_->addTab(BuildCondition(), QStringLiteral("Condition"));
  auto* close = new QPushButton(QStringLiteral("Close"), this);
  connect(close, &QPushButton::clicked, this, &PreferenceDialog::sl_Close);
  auto* buttons = new QHBoxLayout;
  buttons->addStretch();
  buttons->addWidget(close);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(tabs_);
  layout->addLayout(buttons);
  setView(view);
}

QWidget* PreferenceDialog::BuildBrushes() {
  auto* page = new QWidget;
  auto* form = new QFormLayout(page);
  fade_ = new QSpinBox(page);
  fade_->setRange(1, MarkerStore::kMaxHistoryFrames);
  fade_->setSingleStep(120);
  history_ = new QSpinBox(page);
  history_->setRange(1, MarkerStore::kMaxHistoryFrames);
  history_->setSingleStep(120);
  historyLabel_ = new QLabel(QStringLiteral("Max History:"), page);
  form->addRow(QStringLiteral("Fade after n frames:"), fade_);
  form->addRow(historyLabel_, history_);
  auto* apply = new QPushButton(QStringLiteral("Apply"), page);
  connect(apply, &QPushButton::clicked, this, &PreferenceDialog::sl_ApplyBrush);
  form->addRow(apply);
  return page;
}

QWidget* PreferenceDialog::BuildFilter() {
  auto* page = new QWidget;
  auto* form = new QFormLayout(page);
  frequency_ = new QLineEdit(page);
  validator_ = new QDoubleValidator(0.0, 240.0, 2, frequency_);
  validator_->setNotation(QDoubleValidator::StandardNotation);
  validator_->setLocale(QLocale::c());
  frequency_->setValidator(validator_);
  form->addRow(QStringLiteral("Filter frequency (Hz):"), frequency_);
  auto* apply = new QPushButton(QStringLiteral("Apply"), page);
  connect(apply, &QPushButton::clicked, this, &PreferenceDialog::sl_ApplyFilter);
  form->addRow(apply);
  return page;
}

QWidget* PreferenceDialog::BuildCondition() {
  auto* page = new QWidget;
  auto* form = new QFormLayout(page);
  condition_ = new QSlider(Qt::Horizontal, page);
  condition_->setRange(0, 1000);
  condition_->setPageStep(1);
  condition_->setValue(0);
  connect(condition_, &QSlider::sliderMoved, this, &PreferenceDialog::sl_CondChanged);
  conditionValue_ = new QLabel(QStringLiteral("0"), page);
  auto* row = new QHBoxLayout;
  row->addWidget(condition_);
  row->addWidget(conditionValue_);
  form->addRow(QStringLiteral("Cutoff:"), row);
  conditionLabel_ = new QLabel(QStringLiteral("Cond:"), page);
  form->addRow(QStringLiteral("Average:"), conditionLabel_);
  auto* apply = new QPushButton(QStringLiteral("Apply"), page);
  connect(apply, &QPushButton::clicked, this, &PreferenceDialog::sl_ApplyCondition);
  form->addRow(apply);
  return page;
}

void PreferenceDialog::setView(SceneView* view) {
  view_ = view;
  LoadFromView();
}

// The widgets start from what the view uses now.
void PreferenceDialog::LoadFromView() {
  if (!view_) return;
  const MarkerStore& store = view_->markerStore();
  fade_->setValue(store.fadeCount());
  history_->setValue(store.maxHistory());
  ShowFrequency();
  condition_->setValue(static_cast<int>(store.conditionCutoff()));
  sl_CondChanged(condition_->value());
  updateReadouts();
}

void PreferenceDialog::ShowFrequency() {
  if (view_) frequency_->setText(QString::number(view_->markerStore().filterFrequency(), 'g', 6));
}

void PreferenceDialog::setFade(int n) {
  if (view_ && n >= 0) view_->markerStore().SetFadeCount(n);
}

void PreferenceDialog::setMaxHistory(int n) {
  if (view_ && n > 0) view_->markerStore().SetMaxHistory(n);
}

void PreferenceDialog::setFilterFrequency(float f) {
  if (view_ && f >= 0) view_->markerStore().SetFilterFrequency(f);
}

void PreferenceDialog::setCondition(int n) {
  if (view_ && n >= 0) view_->markerStore().SetConditionCutoff(static_cast<float>(n));
}

void PreferenceDialog::updateReadouts() {
  if (!view_) return;
  const MarkerStore& store = view_->markerStore();
  conditionLabel_->setText(QStringLiteral("Cond:") + QString::number(store.averageCondition(), 'f', 1));
  historyLabel_->setText(QStringLiteral("Max History (Approx: ") +
                         QString::number(static_cast<qulonglong>(store.HistoryBytes() / 1024)) +
                         QStringLiteral("KB):"));
}

void PreferenceDialog::sl_DefaultFilter() {
  setFilterFrequency(16.0f);
  ShowFrequency();
}

void PreferenceDialog::sl_DefaultBrush() {
  setFade(480);
  fade_->setValue(480);
}

void PreferenceDialog::sl_DefaultMisc() {
  setCondition(100);
  condition_->setValue(100);
  sl_CondChanged(100);
}

void PreferenceDialog::sl_ApplyFilter() {
  QString text = frequency_->text();
  int position = 0;
  if (validator_->validate(text, position) == QValidator::Acceptable) {
    setFilterFrequency(QLocale::c().toFloat(text));
    return;
  }
  QMessageBox::information(this, QStringLiteral("Invalid Input"),
                           QStringLiteral("Filter Values in Hz must range from 0.0 to 160.0."));
  ShowFrequency();
}

void PreferenceDialog::sl_ApplyBrush() {
  setFade(fade_->value());
  setMaxHistory(history_->value());
}

void PreferenceDialog::sl_ApplyCondition() { setCondition(condition_->value()); }

void PreferenceDialog::sl_Close() { hide(); }

void PreferenceDialog::sl_CondChanged(int v) { conditionValue_->setText(QString::number(v)); }
