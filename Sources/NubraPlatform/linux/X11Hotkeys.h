#pragma once

#include "NubraPlatform/GlobalHotkeys.h"
#include "NubraPlatform/linux/X11Connection.h"

#include <map>
#include <set>

// Hot keys grabbed on the root window with XGrabKey, in every NumLock and CapsLock variant. A held key
// fires once: the connection asks for detectable auto-repeat, so a hold is one release after many presses.
class X11Hotkeys final : public GlobalHotkeys {
public:
    X11Hotkeys();

    Installed installHandler(std::function<void(quint32, quint32)> onPressed) override;
    void removeHandler(HandlerRef handler) override;
    Registered registerHotKey(quint32 keyCode, quint32 carbonModifiers, quint32 signature,
                              quint32 id) override;
    void unregisterHotKey(HotKeyRef hotKey) override;

    // Statuses beyond the X error codes.
    static constexpr int noDisplay = -1;
    static constexpr int unknownKey = -2;

private:
    struct Grab {
        int keycode;
        unsigned int modifiers;
        quint32 signature;
        quint32 id;
    };
    void onXEvent(XEvent& event);
    void setGrab(const Grab& grab, bool on);
    unsigned int numLockMask();

    X11Connection m_connection;
    quint64 m_next = 1;
    std::map<HandlerRef, std::function<void(quint32, quint32)>> m_handlers;
    std::map<HotKeyRef, Grab> m_grabs;
    std::set<int> m_heldKeys; // grabbed keycodes pressed and not yet released
};
