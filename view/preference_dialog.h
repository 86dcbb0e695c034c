// PreferenceDialog: brushes (trail fading and history), the marker filter's
// frequency and the condition cut-off of the 3D view. It keeps no settings
// of its own: every "Apply" writes straight into the view.
#pragma once

#include <QDialog>

class QDoubleValidator;
class QLabel;
class QLineEdit;
class QSlider;
class QSpinBox;
class QTabWidget;
class SceneView;

class PreferenceDialog : public QDialog {
  Q_OBJECT

 public:
  explicit PreferenceDialog(QWidget* parent = nullptr, SceneView* view = nullptr);

  void setView(SceneView* view);
  SceneView* view() const { return view_; }

  // Each does nothing without a view.
  void setFade(int n);
  void setMaxHistory(int n);
  void setFilterFrequency(float f);
  void setCondition(int n);

  // The two read-outs the window refreshes every frame.
  void updateReadouts();

  QSpinBox* fadeBox() const { return fade_; }
  QSpinBox* historyBox() const { return history_; }
  QLineEdit* frequencyEdit() const { return frequency_; }
  QSlider* conditionSlider() const { return condition_; }
  QLabel* conditionValue() const { return conditionValue_; }
  QLabel* conditionLabel() const { return conditionLabel_; }
  QLabel* historyLabel() const { return historyLabel_; }

 public slots:
  void sl_DefaultFilter();
  void sl_DefaultBrush();
  void sl_DefaultMisc();
  void sl_ApplyFilter();
  void sl_ApplyBrush();
  void sl_ApplyCondition();
  void sl_Close();
  void sl_CondChanged(int v);

 private:
  QWidget* BuildBrushes();
  QWidget* BuildFilter();
  QWidget* BuildCondition();
  void ShowFrequency();
  void LoadFromView();

  SceneView* view_ = nullptr;
  QTabWidget* tabs_ = nullptr;
  QSpinBox* fade_ = nullptr;
  QSpinBox* history_ = nullptr;
  QLabel* historyLabel_ = nullptr;
  QLineEdit* frequency_ = nullptr;
  QDoubleValidator* validator_ = nullptr;
  QSlider* condition_ = nullptr;
  QLabel* conditionValue_ = nullptr;
  QLabel* conditionLabel_ = nullptr;
};
