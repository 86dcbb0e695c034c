// GenericWizard: a row of pages stepped through with five buttons ("back",
// "reset", "advanced", "continue", "finish"). It knows only the page cursor,
// the page texts and the buttons; a derived class gives the pages their work
// through pageEntered() and resetPressed().
#pragma once

#include <QStringList>
#include <QWidget>

class QLabel;
class QPushButton;
class QVBoxLayout;

class GenericWizard : public QWidget {
  Q_OBJECT

 public:
  explicit GenericWizard(QWidget* parent, int pageCount);

  // An empty list gives "", an index past the end the last entry.
  static QString textAt(const QStringList& list, int index);

  int page() const { return page_; }
  int pageCount() const { return pageCount_; }
  // 1 entered by "continue", 0 by "back", -1 after a reset.
  int direction() const { return direction_; }

  QLabel* titleLabel() const { return title_; }
  QPushButton* backButton() const { return back_; }
  QPushButton* resetButton() const { return reset_; }
  QPushButton* advancedButton() const { return advanced_; }
  QPushButton* continueButton() const { return continue_; }
  QPushButton* finishButton() const { return finish_; }

 signals:
  // "finish" or "advanced" was pressed: whoever shows the wizard closes it.
  void sg_Closed();

 public slots:
  void sl_Next();
  void sl_Back();
  void sl_Finish();
  void sl_Cancel();
  void sl_Reset();

 protected:
  virtual void pageEntered() {}
  virtual void resetPressed() {}
  // Starts again on the first page without running its entry.
  void rewind(int direction);
  // Where the derived class puts the pages' own widgets.
  QVBoxLayout* pageArea() const { return pageArea_; }

  QStringList titles;
  QStringList details;
  QStringList hints;
  int page_ = 0;
  int direction_ = 1;

 private:
  int pageCount_;
  QLabel* title_ = nullptr;
  QVBoxLayout* pageArea_ = nullptr;
  QPushButton* back_ = nullptr;
  QPushButton* reset_ = nullptr;
  QPushButton* advanced_ = nullptr;
  QPushButton* continue_ = nullptr;
  QPushButton* finish_ = nullptr;
};
