#pragma once

#include "NubraApp/Settings/HotkeyRecorder.h"

#include <QWidget>

class Defaults;
class DesktopShortcutPanel;
class DesktopShortcuts;
class HotkeyManager;
class QLabel;

// The stored hot key in a monospaced font, with "Re-record" (record a new one in this window) and
// "Reset" (back to Option+G). While recording the text asks for the keys instead. Under it, where the
// desktop runs the lookup on a shortcut of its own, the state of that shortcut.
class HotkeyRow final : public QWidget {
    Q_OBJECT

public:
    // All three must outlive the row.
    HotkeyRow(HotkeyManager& hotkeys, Defaults& defaults, DesktopShortcuts& shortcuts,
              QWidget* parent = nullptr);

    HotkeyRecorder& recorder() { return *m_recorder; }
    DesktopShortcutPanel& desktopShortcut() { return *m_desktopShortcut; }

private:
    void render();

    Defaults& m_defaults;
    HotkeyRecorder* m_recorder;
    QLabel* m_text;
    DesktopShortcutPanel* m_desktopShortcut;
};
