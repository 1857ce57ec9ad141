#pragma once

#include "NubraCore/Capture/HotkeyCombo.h"

#include <QString>

#include <optional>

// A hot-key combination in the words of the desktops' own key bindings: modifiers, and the key by its
// keysym name ("g", "space", "Return"), which GNOME, sway and Hyprland all read without regard to case.
struct DesktopShortcutKeys {
    bool alt = false;
    bool super = false;
    bool control = false;
    bool shift = false;
    QString key;

    // Option is Alt and Command is Super, as for the grabbed hot key; nothing for a key without a name.
    static std::optional<DesktopShortcutKeys> of(const HotkeyCombo& combo);
    // GNOME's accelerators ("<Primary><Alt>t"); nothing for one with modifiers beyond these four.
    static std::optional<DesktopShortcutKeys> fromGnome(const QString& accelerator);
    // sway's bindsym keys ("$mod+Shift+g" after variables are replaced: "Mod4+Shift+g").
    static std::optional<DesktopShortcutKeys> fromSway(const QString& keys);

    QString gnome() const;                // "<Control><Shift>space"
    QString sway() const;                 // "Ctrl+Shift+space"
    QString hyprlandModifiers() const;    // "CTRL SHIFT"
    QString hyprlandKey() const;          // "G", "space"
    unsigned int hyprlandModmask() const; // xkb's modifier bits, as `hyprctl binds` gives them

    bool operator==(const DesktopShortcutKeys& other) const;
};
