#pragma once

#include <QMessageBox>

// The application's message boxes: not modal and without a nested event loop, so the card, the
// bubble and the tray keep working while one is open. Each deletes itself when closed.
namespace Alert {

// A message box named `name` (its buttons are named after it) with `title` as its message.
QMessageBox* make(const QString& name, QMessageBox::Icon icon, const QString& title, const QString& body);
// Adds a button named <alert name><suffix>; the first one added is the default.
QPushButton* addButton(QMessageBox* alert, const QString& text, QMessageBox::ButtonRole role,
                       const QString& suffix = QStringLiteral("Button"));
// Adds the standard OK button, named <alert name>Button.
QPushButton* addOk(QMessageBox* alert);
// Shows it in front, active: the user asked for what it says.
void present(QMessageBox* alert);

} // namespace Alert
