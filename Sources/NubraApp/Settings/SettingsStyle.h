#pragma once

#include <QString>

class QLabel;
class QPushButton;
class QWidget;

// The look the settings pages share.
namespace SettingsStyle {

// Dimmed, for what explains rather than controls.
void setSecondary(QWidget* widget);
// Caption size: a little smaller than the body text.
void setCaption(QWidget* widget);
// A caption-sized, secondary, wrapping line under a group of controls.
QLabel* footnote(const QString& text, QWidget* parent);
// Red text, for a button that destroys data.
void setDestructive(QPushButton* button);
// A row of a group: `label` on the left, `control` at its natural size on the right.
QWidget* labelledRow(const QString& label, QWidget* control, QWidget* parent);
// `control` at its natural size on the left of a row of its own.
QWidget* leadingRow(QWidget* control, QWidget* parent);

} // namespace SettingsStyle
