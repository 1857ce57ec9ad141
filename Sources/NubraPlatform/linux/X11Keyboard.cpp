#include "NubraPlatform/linux/X11Keyboard.h"

#include "NubraPlatform/linux/QtPasteboard.h"

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

X11Keyboard::~X11Keyboard() {
    if (m_display)
        XCloseDisplay(m_display);
}

bool X11Keyboard::beginCopy() {
    // The clipboard was saved just before; if that save is incomplete, copying over the clipboard would
    // lose what it missed. No copy is better than a lost clipboard.
    if (m_pasteboard.readsIncomplete())
        return false;
    std::lock_guard guard(m_lock);
    if (!m_display)
        m_display = XOpenDisplay(nullptr);
    int event = 0, error = 0, major = 0, minor = 0;
    if (!m_display || !XTestQueryExtension(m_display, &event, &error, &major, &minor))
        return false;
    // A modifier the user still holds (Alt in Option-selection mode) would turn Control+C into
    // something else: let go of every pressed modifier key first.
    char keys[32] = {};
    XQueryKeymap(m_display, keys);
    XModifierKeymap* map = XGetModifierMapping(m_display);
    for (int i = 0; map && i < 8 * map->max_keypermod; ++i) {
        const KeyCode code = map->modifiermap[i];
        if (code != 0 && (keys[code / 8] & (1 << (code % 8))))
            XTestFakeKeyEvent(m_display, code, False, CurrentTime);
    }
    if (map)
        XFreeModifiermap(map);
    XFlush(m_display);
    return true;
}

bool X11Keyboard::post(CopyStroke stroke) {
    std::lock_guard guard(m_lock);
    if (!m_display)
        return false;
    const bool isModifier = stroke == CopyStroke::modifierDown || stroke == CopyStroke::modifierUp;
    const bool down = stroke == CopyStroke::modifierDown || stroke == CopyStroke::keyDown;
    const KeyCode code = XKeysymToKeycode(m_display, isModifier ? XK_Control_L : XK_c);
    if (code == 0)
        return false;
    XTestFakeKeyEvent(m_display, code, down ? True : False, CurrentTime);
    XFlush(m_display);
    return true;
}
