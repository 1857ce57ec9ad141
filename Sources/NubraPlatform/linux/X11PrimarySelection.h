#pragma once

#include "NubraPlatform/PrimarySelection.h"
#include "NubraPlatform/linux/X11Connection.h"

#include <atomic>

// PRIMARY read over a connection of the calling thread's own, so that an application that is slow to
// hand over its selection (or never does) costs the background reader at most `readTimeoutMs` and
// never blocks Qt's GUI thread. Owner changes are watched with XFixes on the main thread. Create it on
// the main thread; text() is safe from any thread.
class X11PrimarySelection final : public PrimarySelection {
public:
    static constexpr int readTimeoutMs = 500;
    // Bytes accepted from the owner; a selection nobody could mean to look up is refused whole.
    static constexpr qsizetype maxBytes = 4 * 1024 * 1024;

    X11PrimarySelection();

    std::optional<QString> text() override;
    std::optional<quint64> ownerChangedAt() override;

private:
    X11Connection m_watch;
    int m_xfixesEventBase = -1;
    std::atomic<quint64> m_ownerChangedAt = 0;
};
