#pragma once

#include <QWidget>

class AppState;
class QFormLayout;
class GlossServiceRow;
class HotkeyRow;
namespace NubraWindows {
struct Services;
}

// The general tab: how a lookup is triggered (with the hot key in hotkey mode), pausing, dismissing
// the card, launch at login, the accessibility permission and, when it is not running, the local
// gloss service.
class GeneralPage final : public QWidget {
    Q_OBJECT

public:
    GeneralPage(AppState& state, const NubraWindows::Services& services, QWidget* parent = nullptr);

protected:
    void showEvent(QShowEvent* event) override;

private:
    QWidget* selectionSection(AppState& state, const NubraWindows::Services& services);
    QWidget* systemSection(AppState& state, const NubraWindows::Services& services);
    // The hot-key row is there in hotkey mode only; leaving that mode ends a recording.
    void followTriggerMode();

    AppState& m_state;
    QFormLayout* m_selectionForm = nullptr;
    HotkeyRow* m_hotkeyRow = nullptr;
    GlossServiceRow* m_serviceRow = nullptr;
};
