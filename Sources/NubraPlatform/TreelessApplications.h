#pragma once

#include <QList>
#include <QString>
#include <QtGlobal>

#include <optional>

// An application that shows text but keeps it from the accessibility interface until it is started
// with a switch: a Chromium-based browser or an Electron application on Linux. Nubra still reads its
// selections through the pasteboard, without the text around them and without their rectangle.
struct TreelessApp {
    enum class Kind { chromiumBrowser, electron };

    QString name; // as people know it, in the interface language where the desktop entry has it
    Kind kind = Kind::chromiumBrowser;
    qint64 processId = 0; // the main process, the one that owns the windows

    // What turns the tree on: a command-line flag for browsers, an environment variable for Electron
    // (which takes the flag as well).
    QString enablingSwitch() const {
        return kind == Kind::electron ? QStringLiteral("ACCESSIBILITY_ENABLED=1")
                                      : QStringLiteral("--force-renderer-accessibility");
    }

    bool operator==(const TreelessApp&) const = default;
};

class TreelessApplications {
public:
    virtual ~TreelessApplications() = default;

    // This user's applications of that kind running now without their tree, one per name, ordered by
    // process id. Walks the process table: call it off the GUI thread.
    virtual QList<TreelessApp> running() = 0;
    // The application whose main process is `processId` when it is one of them. Reads that process only.
    virtual std::optional<TreelessApp> application(qint64 processId) = 0;
};
