#pragma once

#include "NubraApp/Settings/SettingsTab.h"

#include <QString>

#include <optional>

class AppState;
class QWidget;
struct AppServices;

// The application's windows: each created once, kept when closed and reused. Main thread only.
namespace NubraWindows {

// What the windows use of the running application beyond its state. The application installs its
// own at start-up, before any window is shown, and removes them before tearing them down; removing
// them also deletes the onboarding window and the welcome panel.
void install(AppServices* services);

// Shows the settings window, created on the first call at `initialTab` (none: the first tab). A window
// that exists keeps its tab.
void showSettings(AppState& state, std::optional<SettingsTab> initialTab = std::nullopt);
// The settings window once created; it goes away with the services it uses.
QWidget* settingsWindow();
// Shows the history window, created on the first call, then asks its list to reload.
void showHistory(AppState& state);
// The history window once created; it goes away with the state it shows.
QWidget* historyWindow();
// Shows the onboarding window, created on the first call: nothing happens while it is on screen, a
// hidden one comes back. Needs the services installed. Shown on the user's request it takes the focus;
// shown because the permission came into force it does not, since its guide asks the user to go and
// select text in the application they were in.
enum class Focus { take, leave };
void showPermissionFlow(AppState& state, Focus focus = Focus::take);
// Puts the onboarding window away (it is kept for a later show).
void closePermissionFlow();
// The onboarding window once created; it goes away with the state it shows or with the services.
QWidget* permissionWindow();
// Once per process, and only with a primary screen: the "Nubra is running" notice at the top right,
// without taking the focus, hidden again after welcomeShownMs by the services' clock.
inline constexpr int welcomeShownMs = 4000;
void showWelcome();
// The welcome panel while it is on screen.
QWidget* welcomePanel();
// Shows the outcome of an update check the user asked for in a small panel, in front but without
// taking the focus; a notice already on screen goes away first.
void showUpdateNotice(const QString& text, bool isError);
// The notice on screen or last shown, until it is replaced.
QWidget* updateNoticePanel();
// Starts a new instance of this program, then quits this one; a failed start is ignored.
void restartApp();

} // namespace NubraWindows
