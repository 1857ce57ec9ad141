#include "NubraApp/Settings/SettingsStyle.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

namespace SettingsStyle {

void setSecondary(QWidget* widget) {
    QPalette palette = widget->palette();
    QColor color = palette.color(QPalette::WindowText);
    color.setAlphaF(0.62f);
    palette.setColor(QPalette::WindowText, color);
    widget->setPalette(palette);
}

void setCaption(QWidget* widget) {
    QFont caption = widget->font();
    if (caption.pointSizeF() > 0)
        caption.setPointSizeF(caption.pointSizeF() * 0.85);
    else
        caption.setPixelSize(qRound(caption.pixelSize() * 0.85));
    widget->setFont(caption);
}

QLabel* footnote(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    setCaption(label);
    setSecondary(label);
    return label;
}

void setDestructive(QPushButton* button) {
    QPalette palette = button->palette();
    palette.setColor(QPalette::ButtonText, QColor(204, 36, 29));
    button->setPalette(palette);
}

QWidget* labelledRow(const QString& label, QWidget* control, QWidget* parent) {
    auto* row = new QWidget(parent);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(new QLabel(label, row));
    layout->addStretch(1);
    control->setParent(row);
    layout->addWidget(control);
    return row;
}

QWidget* leadingRow(QWidget* control, QWidget* parent) {
    auto* row = new QWidget(parent);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    control->setParent(row);
    layout->addWidget(control);
    layout->addStretch(1);
    return row;
}

} // namespace SettingsStyle
