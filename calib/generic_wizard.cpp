#include "calib/generic_wizard.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>

GenericWizard::GenericWizard(QWidget* parent, int pageCount) : QWidget(parent), pageCount_(pageCount) {
  setFont(QFont(QStringLiteral("Helvetica")));
  auto* layout = new QVBoxLayout(this);
  title_ = new QLabel(this);
  title_->setObjectName(QStringLiteral("title"));
  title_->setWordWrap(true);
  QFont bold = font();
  bold.setBold(true);
  bold.setPointSizeF(bold.pointSizeF() * 1.25);
  title_->setFont(bold);
  layout->addWidget(title_);
  pageArea_ = new QVBoxLayout;
  layout->addLayout(pageArea_, 1);

  auto* buttons = new QHBoxLayout;
  const auto button = [&](const char* text, void (GenericWizard::*slot)()) {
    auto* b = new QPushButton(QString::fromLatin1(text), this);
    b->setObjectName(QString::fromLatin1(text));
    connect(b, &QPushButton::clicked, this, slot);
    buttons->addWidget(b);
    return b;
  };
  back_ = button("back", &GenericWizard::sl_Back);
  reset_ = button("reset", &GenericWizard::sl_Reset);
  advanced_ = button("advanced", &GenericWizard::sl_Cancel);
  buttons->addStretch(1);
  continue_ = button("continue", &GenericWizard::sl_Next);
  finish_ = button("finish", &GenericWizard::sl_Finish);
  continue_->setDefault(true);
  back_->setEnabled(false);
  finish_->hide();
  layout->addLayout(buttons);
}

QString GenericWizard::textAt(const QStringList& list, int index) {
  if (list.isEmpty()) return QString();
  return list[std::clamp<qsizetype>(index, 0, list.size() - 1)];
}

void GenericWizard::sl_Next() {
  if (page_ < pageCount_ - 1) {
    ++page_;
    direction_ = 1;
  }
  back_->setEnabled(page_ != 0);
  const bool last = page_ == pageCount_ - 1;
  continue_->setVisible(!last);
  finish_->setVisible(last);
  pageEntered();
}

void GenericWizard::sl_Back() {
  if (page_ > 0) {
    --page_;
    direction_ = 0;
  }
  if (page_ == 0) back_->setEnabled(false);
  const bool last = page_ == pageCount_ - 1;
  continue_->setVisible(!last);
  finish_->setVisible(last);
  if (last) back_->setEnabled(true);
  pageEntered();
}

void GenericWizard::sl_Finish() { emit sg_Closed(); }

void GenericWizard::sl_Cancel() { emit sg_Closed(); }

void GenericWizard::sl_Reset() {
  back_->setEnabled(false);
  continue_->setEnabled(true);
  continue_->show();
  finish_->hide();
  resetPressed();
}

void GenericWizard::rewind(int direction) {
  page_ = 0;
  direction_ = direction;
  back_->setEnabled(false);
  continue_->setEnabled(true);
  continue_->show();
  finish_->hide();
}
