#pragma once

#include "NubraApp/Settings/HotkeyRecorder.h"

#include <QWidget>

#include <functional>

class Defaults;
class DesktopShortcuts;
class HotkeyManager;
class QLabel;

// The stored hot key in a monospaced font, with "Re-record" (record a new one in this window) and
// "Reset" (back to Alt+G). While recording the text asks for the keys instead, or shows the modifiers
// held so far, and a line under it says when the keys pressed are the other hot key's. Under it the
// key the desktop bound where it binds it (the GlobalShortcuts portal), and where the desktop runs the
// lookup on a shortcut of its own, the state of that shortcut.
//
// The row of an optional hot key (the text on screen) has "Clear" instead of "Reset", says "None" when
// no key is set, and its object names start with `name`.
class HotkeyRow final : public QWidget {
    Q_OBJECT

public:
    // All three must outlive the row.
    HotkeyRow(HotkeyManager& hotkeys, Defaults& defaults, DesktopShortcuts& shortcuts,
              QWidget* parent = nullptr);
    HotkeyRow(HotkeyManager& hotkeys, Defaults& defaults, const HotkeySlot& slot, const QString& name,
              QWidget* parent = nullptr);

    HotkeyRecorder& recorder() { return *m_recorder; }

private:
    // The key, the record button and the reset or clear button.
    void addKeys(const QString& name, const QString& resetText, std::function<void()> reset);
    void render();
    // Under the key, where the desktop binds it itself: what it bound, or that it bound nothing.
    void renderDesktopBinding();

    HotkeyManager& m_hotkeys;
    Defaults& m_defaults;
    HotkeyRecorder* m_recorder;
    QLabel* m_text;
    QLabel* m_refusal = nullptr; // under the keys, while a recording has met the other hot key's keys
    QLabel* m_desktopBinding = nullptr;
};
