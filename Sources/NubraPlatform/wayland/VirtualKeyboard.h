#pragma once

#include "NubraPlatform/SyntheticKeyboard.h"
#include "NubraPlatform/wayland/WaylandConnection.h"

#include <QByteArray>

#include <mutex>

// Control+C through zwp_virtual_keyboard_v1 (sway, Hyprland), in the user's own keymap: a keymap of
// our own would change the one every application sees while we type, and a minimal one breaks
// GTK's key bindings.
class VirtualKeyboard final : public SyntheticKeyboard {
public:
    static constexpr int timeoutMs = 500;

    explicit VirtualKeyboard(WaylandConnection& connection) : m_connection(connection) {}

    bool beginCopy() override;
    bool post(CopyStroke stroke) override;

    // On the connection's thread: our virtual keyboard, made once and given `keymap` when it has
    // another one. False when the compositor offers no virtual keyboards or `keymap` is empty.
    static bool prepare(WaylandConnection::Objects& objects, const QByteArray& keymap);
    // On the connection's thread, after prepare(): one key (an evdev code) and the modifier state.
    static void key(WaylandConnection::Objects& objects, quint32 evdevCode, bool pressed);
    static void modifiers(WaylandConnection::Objects& objects, quint32 depressed, quint32 group);

private:
    struct CopyKeys {
        quint32 control = 0;
        quint32 c = 0;
        quint32 controlMask = 0;
        quint32 group = 0;
    };

    WaylandConnection& m_connection;
    std::mutex m_lock;
    QByteArray m_keymap; // the keymap m_keys were found in
    std::optional<CopyKeys> m_keys;
};
