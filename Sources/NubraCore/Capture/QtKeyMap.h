#pragma once

#include <QtCore/qnamespace.h>

#include <cstdint>
#include <optional>

// Translation of a key press as Qt reports it into the ANSI virtual key code and modifier flags of
// HotkeyCombo, for recording a hot key in one of our own windows.
namespace QtKeyMap {

// Modifiers beyond the four a hot key may carry; a combination holding either is not meaningful.
inline constexpr std::uint64_t keypadFlag = 0x200000;
inline constexpr std::uint64_t groupSwitchFlag = 0x1000000;

// The ANSI key code of a key a hot key can use: the letters, the digits, Return, Tab, Space,
// Backspace, Escape and the arrows, the same keys the X11 grab knows. Nothing for any other key.
// Shift turns a digit into its symbol before Qt reports it; on a US layout those map back to the digit.
std::optional<std::uint64_t> ansiKeyCode(int qtKey, Qt::KeyboardModifiers modifiers);

// Shift, Control, Alt (Option) and Meta (Super, Command) as HotkeyCombo flags; the keypad and group
// switch modifiers as the two flags above.
std::uint64_t modifierFlags(Qt::KeyboardModifiers modifiers);

} // namespace QtKeyMap
