#include "NubraPlatform/linux/X11Hotkeys.h"

#include "NubraPlatform/linux/X11KeyMap.h"

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/keysym.h>

#include <vector>

X11Hotkeys::X11Hotkeys() {
    m_connection.setHandler([this](XEvent& event) { onXEvent(event); });
    // Without this the server sends a release before every repeated press, and a held key would look
    // like a stream of separate presses.
    if (m_connection.isOpen())
        XkbSetDetectableAutoRepeat(m_connection.display(), True, nullptr);
}

GlobalHotkeys::Installed X11Hotkeys::installHandler(std::function<void(quint32, quint32)> onPressed) {
    if (!m_connection.isOpen())
        return {noDisplay, 0};
    const HandlerRef ref = m_next++;
    m_handlers.emplace(ref, std::move(onPressed));
    return {0, ref};
}

void X11Hotkeys::removeHandler(HandlerRef handler) {
    m_handlers.erase(handler);
}

unsigned int X11Hotkeys::numLockMask() {
    Display* display = m_connection.display();
    const KeyCode numLock = XKeysymToKeycode(display, XK_Num_Lock);
    XModifierKeymap* map = XGetModifierMapping(display);
    unsigned int mask = 0;
    for (int modifier = 0; map && modifier < 8; ++modifier) {
        for (int k = 0; k < map->max_keypermod; ++k) {
            if (numLock != 0 && map->modifiermap[modifier * map->max_keypermod + k] == numLock)
                mask = 1u << modifier;
        }
    }
    if (map)
        XFreeModifiermap(map);
    return mask;
}

void X11Hotkeys::setGrab(const Grab& grab, bool on) {
    Display* display = m_connection.display();
    const unsigned int numLock = numLockMask();
    // The grab must match whatever lock keys happen to be on.
    for (unsigned int variant : {0u, unsigned(LockMask), numLock, LockMask | numLock}) {
        if (on)
            XGrabKey(display, grab.keycode, grab.modifiers | variant, DefaultRootWindow(display), True,
                     GrabModeAsync, GrabModeAsync);
        else
            XUngrabKey(display, grab.keycode, grab.modifiers | variant, DefaultRootWindow(display));
    }
}

GlobalHotkeys::Registered X11Hotkeys::registerHotKey(quint32 keyCode, quint32 carbonModifiers,
                                                     quint32 signature, quint32 id) {
    if (!m_connection.isOpen())
        return {noDisplay, 0};
    const std::optional<quint32> keysym = X11KeyMap::keysymFor(keyCode);
    const int keycode = keysym ? XKeysymToKeycode(m_connection.display(), *keysym) : 0;
    if (keycode == 0)
        return {unknownKey, 0};
    const Grab grab{keycode, X11KeyMap::x11Modifiers(carbonModifiers), signature, id};
    const int error = m_connection.trapErrors([&] { setGrab(grab, true); });
    if (error != 0) {
        m_connection.trapErrors([&] { setGrab(grab, false); });
        return {error, 0};
    }
    const HotKeyRef ref = m_next++;
    m_grabs.emplace(ref, grab);
    return {0, ref};
}

void X11Hotkeys::unregisterHotKey(HotKeyRef hotKey) {
    const auto found = m_grabs.find(hotKey);
    if (found == m_grabs.end())
        return;
    m_connection.trapErrors([&] { setGrab(found->second, false); });
    m_grabs.erase(found);
}

void X11Hotkeys::onXEvent(XEvent& event) {
    // The modifiers may go up before the key, so the release is matched by keycode alone.
    if (event.type == KeyRelease) {
        m_heldKeys.erase(int(event.xkey.keycode));
        return;
    }
    if (event.type != KeyPress)
        return;
    const unsigned int state = event.xkey.state & (ShiftMask | ControlMask | Mod1Mask | Mod4Mask);
    for (const auto& [ref, grab] : m_grabs) {
        if (int(event.xkey.keycode) != grab.keycode || state != grab.modifiers)
            continue;
        if (!m_heldKeys.insert(grab.keycode).second)
            return; // auto-repeat of a key still held
        std::vector<std::function<void(quint32, quint32)>> handlers;
        for (const auto& [handlerRef, handler] : m_handlers)
            handlers.push_back(handler);
        for (const auto& handler : handlers)
            handler(grab.signature, grab.id);
        return;
    }
}
