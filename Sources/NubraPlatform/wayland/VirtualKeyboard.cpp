#include "NubraPlatform/wayland/VirtualKeyboard.h"

#include "NubraPlatform/wayland/KeymapLookup.h"

#include "virtual-keyboard-unstable-v1-client.h"

#include <wayland-client.h>
#include <xkbcommon/xkbcommon-keysyms.h>
#include <xkbcommon/xkbcommon.h>

#include <chrono>
#include <sys/mman.h>
#include <unistd.h>

namespace {

quint32 nowMs() {
    using namespace std::chrono;
    return quint32(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

} // namespace

bool VirtualKeyboard::prepare(WaylandConnection::Objects& objects, const QByteArray& keymap) {
    if (!objects.virtualKeyboards || !objects.seat || keymap.isEmpty())
        return false;
    if (!objects.virtualKeyboard)
        objects.virtualKeyboard =
            zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(objects.virtualKeyboards, objects.seat);
    if (objects.virtualKeymap == keymap)
        return true;
    const int fd = memfd_create("nubra-keymap", MFD_CLOEXEC);
    if (fd < 0)
        return false;
    // The compositor maps size bytes, the text and its closing NUL.
    const qsizetype size = keymap.size() + 1;
    const bool written = write(fd, keymap.constData(), size) == size;
    if (written) {
        zwp_virtual_keyboard_v1_keymap(objects.virtualKeyboard, WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1, fd,
                                       quint32(size));
        objects.virtualKeymap = keymap;
    }
    close(fd);
    return written;
}

void VirtualKeyboard::key(WaylandConnection::Objects& objects, quint32 evdevCode, bool pressed) {
    zwp_virtual_keyboard_v1_key(objects.virtualKeyboard, nowMs(), evdevCode,
                                pressed ? WL_KEYBOARD_KEY_STATE_PRESSED : WL_KEYBOARD_KEY_STATE_RELEASED);
}

void VirtualKeyboard::modifiers(WaylandConnection::Objects& objects, quint32 depressed, quint32 group) {
    zwp_virtual_keyboard_v1_modifiers(objects.virtualKeyboard, depressed, 0, 0, group);
}

bool VirtualKeyboard::beginCopy() {
    const std::optional<QByteArray> keymap =
        m_connection.call([](WaylandConnection::Objects& objects) { return objects.keymap; }, timeoutMs);
    if (!keymap || keymap->isEmpty())
        return false;
    std::lock_guard guard(m_lock);
    if (*keymap != m_keymap || !m_keys) {
        m_keymap = *keymap;
        m_keys.reset();
        const KeymapLookup lookup(*keymap);
        const std::optional<KeymapLookup::Key> control = lookup.find(XKB_KEY_Control_L);
        const std::optional<KeymapLookup::Key> c = lookup.find(XKB_KEY_c);
        const quint32 controlMask = lookup.modifierMask(XKB_MOD_NAME_CTRL);
        if (!control || !c || controlMask == 0)
            return false;
        m_keys = CopyKeys{control->evdevCode, c->evdevCode, controlMask, c->layout};
    }
    return m_connection
        .call([keymap = *keymap](WaylandConnection::Objects& objects) { return prepare(objects, keymap); },
              timeoutMs)
        .value_or(false);
}

bool VirtualKeyboard::post(CopyStroke stroke) {
    std::optional<CopyKeys> keys;
    {
        std::lock_guard guard(m_lock);
        keys = m_keys;
    }
    if (!keys)
        return false;
    return m_connection
        .call(
            [stroke, keys = *keys](WaylandConnection::Objects& objects) {
                if (!objects.virtualKeyboard)
                    return false;
                switch (stroke) {
                case CopyStroke::modifierDown:
                    key(objects, keys.control, true);
                    modifiers(objects, keys.controlMask, keys.group);
                    break;
                case CopyStroke::keyDown:
                    key(objects, keys.c, true);
                    break;
                case CopyStroke::keyUp:
                    key(objects, keys.c, false);
                    break;
                case CopyStroke::modifierUp:
                    key(objects, keys.control, false);
                    modifiers(objects, 0, 0);
                    break;
                }
                return true;
            },
            timeoutMs)
        .value_or(false);
}
