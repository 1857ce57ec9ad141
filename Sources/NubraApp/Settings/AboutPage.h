#pragma once

#include <QWidget>

// The about tab: the mark, the name and version, what Nubra is, and where to find help.
class AboutPage final : public QWidget {
    Q_OBJECT

public:
    explicit AboutPage(QWidget* parent = nullptr);

    // "v" and the version this build was made from.
    static QString versionText();
};
