#pragma once

#include "NubraApp/Settings/SettingsTab.h"

#include <QWidget>

#include <optional>

class AppState;
struct AppServices;
class QTabWidget;

// The settings: four tabs (general, explanation, privacy, about) over the application state. The trigger
// mode and the history-recording switch are saved at once; every other change takes effect at once and
// is saved with the next save of the settings. Main thread only.
class SettingsView final : public QWidget {
    Q_OBJECT

public:
    using Tab = SettingsTab;

    // Opens at `initialTab`, the general tab when none is given. The state and the services must
    // outlive the view.
    SettingsView(AppState& state, const AppServices& services, std::optional<Tab> initialTab,
                 QWidget* parent = nullptr);

    // "Nubra 设置" / "Nubra Settings": the title of the window that hosts this view.
    static QString windowTitleText();

    Tab currentTab() const;

private:
    QTabWidget* m_tabs;
};
