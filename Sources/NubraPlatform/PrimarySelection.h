#pragma once

#include <QString>

#include <optional>

// The X11 PRIMARY selection: the text last selected anywhere, readable without touching the clipboard.
// Desktops without such a buffer answer nothing.
class PrimarySelection {
public:
    virtual ~PrimarySelection() = default;

    virtual std::optional<QString> text() = 0;
    // The server time (milliseconds, the clock of mouse events) at which an application last took
    // ownership of PRIMARY, 0 when none has since we started watching; absent when the desktop cannot
    // tell. Applications keep owning PRIMARY after a deselect, so only an owner change after a press
    // says that the press selected something new.
    virtual std::optional<quint64> ownerChangedAt() = 0;
};
