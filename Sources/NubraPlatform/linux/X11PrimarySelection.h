#pragma once

#include "NubraPlatform/PrimarySelection.h"
#include "NubraPlatform/linux/X11Connection.h"

#include <atomic>
#include <functional>

// PRIMARY read over a connection of the calling thread's own, so that an application that is slow to
// hand over its selection (or never does) costs the background reader at most `readTimeoutMs` and
// never blocks Qt's GUI thread. Owner changes are watched with XFixes on the main thread. Create it on
// the main thread; text() is safe from any thread.
//
// Under XWayland the window manager bridges the Wayland primary selection: mutter's own X client takes
// PRIMARY at every selection change of a Wayland client, a deselect included (it then owns PRIMARY
// without any text). The change listener tells those apart from X11 applications' selections by the X
// client that created the new owner window.
class X11PrimarySelection final : public PrimarySelection {
public:
    static constexpr int readTimeoutMs = 500;
    // Bytes accepted from the owner; a selection nobody could mean to look up is refused whole.
    static constexpr qsizetype maxBytes = 4 * 1024 * 1024;

    X11PrimarySelection();

    std::optional<QString> text() override;
    std::optional<quint64> ownerChangedAt() override;

    // Called on the main thread at every new owner of PRIMARY. `fromWaylandClient`: the window manager
    // owns it, so on a Wayland session a native Wayland window made the selection (on an X11 session it
    // would be the window manager's own text, never an application's).
    void setChangeListener(std::function<void(bool fromWaylandClient)> listener);

private:
    bool ownedByWindowManager(unsigned long owner);

    X11Connection m_watch;
    int m_xfixesEventBase = -1;
    std::atomic<quint64> m_ownerChangedAt = 0;
    std::function<void(bool)> m_listener;
};
