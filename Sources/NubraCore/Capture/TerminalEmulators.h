#pragma once

#include <QString>

// Terminal emulators, known by their window class. A synthetic Ctrl+C into one interrupts the program
// running there instead of copying, so capture never sends it. Applications that do expose themselves to
// the accessibility bus are also recognised by their role; this list covers the rest.
namespace TerminalEmulators {

// Whether the window class (WM_CLASS class or instance part, or a Flatpak/desktop application id)
// belongs to a terminal emulator; case does not matter.
bool isTerminalClass(const QString& windowClass);

} // namespace TerminalEmulators
