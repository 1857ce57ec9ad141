#pragma once

#include <QtGlobal>

#include <optional>

// Translation between the ANSI virtual key codes and Carbon modifiers of HotkeyCombo and X11 keysyms
// and modifier masks.
namespace X11KeyMap {

// The keysym of an ANSI virtual key code (letters, digits, Return, Tab, Space, Delete, Escape, arrows).
std::optional<quint32> keysymFor(quint32 ansiKeyCode);
// Command is Super (Mod4), Option is Alt (Mod1).
unsigned int x11Modifiers(quint32 carbonModifiers);
// An X11 modifier state as device-independent flags (Shift 0x20000, Control 0x40000, Option 0x80000,
// Command 0x100000); lock and pointer-button bits are dropped.
quint64 modifierFlags(unsigned int x11State);

} // namespace X11KeyMap
