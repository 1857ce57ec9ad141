#pragma once

#include "NubraPlatform/DesktopCapabilities.h"

#include <QWidget>

class AppState;
class QComboBox;
class QLabel;
class QFormLayout;
class GlossServiceRow;
class HotkeyRow;
struct AppServices;

// The general tab: how a lookup is triggered (with the hot key in hotkey mode, the key to hold in
// Option-selection mode, and what the mode does on this desktop), pausing, dismissing
// the card, launch at login, the accessibility permission and, when it is not running, the local
// gloss service.
class GeneralPage final : public QWidget {
    Q_OBJECT

public:
    GeneralPage(AppState& state, const AppServices& services, QWidget* parent = nullptr);

protected:
    void showEvent(QShowEvent* event) override;

private:
    QWidget* selectionSection(AppState& state, const AppServices& services);
    QWidget* systemSection(AppState& state, const AppServices& services);
    // The hot-key row is there in hotkey mode only; leaving that mode ends a recording. The key to hold
    // is there in Option-selection mode only. Under the picker, what the mode does on this desktop where
    // that differs from its name.
    void followTriggerMode();
    // Beside each mode in the picker's list: whether it works on this desktop.
    void showAvailability(QComboBox* trigger);

    AppState& m_state;
    // As of the window's making: the trigger picker and its note describe them.
    const DesktopCapabilities m_capabilities;
    QLabel* m_triggerNote = nullptr;
    QFormLayout* m_selectionForm = nullptr;
    QComboBox* m_modifierPicker = nullptr;
    HotkeyRow* m_hotkeyRow = nullptr;
    GlossServiceRow* m_serviceRow = nullptr;
};
