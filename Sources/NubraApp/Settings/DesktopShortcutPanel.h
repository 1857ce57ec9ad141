#pragma once

#include "NubraPlatform/DesktopShortcuts.h"

#include <QWidget>

class Defaults;
class HotkeyRecorder;
class QLabel;
class QLineEdit;
class QPushButton;

// Under the hot key, where the desktop runs Nubra's lookup on a shortcut of its own: whether it is set
// up for the stored combination, what else uses that combination, and the way to set it up ("Add the
// shortcut" where the desktop's settings can be changed for the user, else the configuration line to
// copy). Hidden where the hot key is grabbed directly.
class DesktopShortcutPanel final : public QWidget {
    Q_OBJECT

public:
    // All three must outlive the panel.
    DesktopShortcutPanel(DesktopShortcuts& shortcuts, HotkeyRecorder& recorder, const Defaults& defaults,
                         QWidget* parent = nullptr);

    // Asks the desktop again (the user may have edited its configuration meanwhile).
    void refresh();

protected:
    void showEvent(QShowEvent* event) override;

private:
    void followCombo();
    void showStatus(const DesktopShortcuts::Status& status);
    DesktopShortcuts::Done answer();

    DesktopShortcuts& m_shortcuts;
    const Defaults& m_defaults;
    QLabel* m_status;
    QLineEdit* m_line = nullptr;
    QPushButton* m_add = nullptr;
    QPushButton* m_remove = nullptr;
    bool m_active = false;
};
