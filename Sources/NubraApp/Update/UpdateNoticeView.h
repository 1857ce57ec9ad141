#pragma once

#include <QWidget>

// What a check the user asked for found, when there is nothing to install: one message, red when the
// check failed.
class UpdateNoticeView : public QWidget {
    Q_OBJECT

public:
    static constexpr int viewWidth = 340;

    UpdateNoticeView(const QString& text, bool isError, QWidget* parent = nullptr);

    // "Check for Updates", the title of the panel that shows it.
    static QString windowTitleText();
};
