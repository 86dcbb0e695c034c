// Every warning box of the program goes through ShowWarning, so that tests
// (and anything else that must not block) can take the boxes instead of a
// modal dialog.
#pragma once

#include <QString>
#include <functional>

class QWidget;

using WarningHandler =
    std::function<void(QWidget* parent, const QString& caption, const QString& text)>;

// A modal QMessageBox::warning unless a handler is installed.
void ShowWarning(QWidget* parent, const QString& caption, const QString& text);
// An information box, through the same handler as the warnings.
void ShowInformation(QWidget* parent, const QString& caption, const QString& text);
// Installs a handler (an empty one restores the dialog); returns the previous.
WarningHandler SetWarningHandler(WarningHandler handler);
