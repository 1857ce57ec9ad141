#pragma once

#include <QString>

#include <optional>

class AppState;
class HotkeyManager;
class QWidget;
class TrustWatcher;
struct Desktop;

// The application's windows: each created once, kept when closed and reused. Main thread only.
namespace NubraWindows {

// What the windows use of the running application beyond its state. The application installs its
// own at start-up, before any window is shown, and removes them before tearing them down.
struct Services {
    Desktop& desktop;
    HotkeyManager& hotkeys;
    TrustWatcher& trust;
};
void install(Services* services);

// The settings window's tabs, by the names the command line uses.
enum class SettingsTab { general, gloss, privacy, about };
std::optional<SettingsTab> settingsTabFrom(const QString& name);

// Shows the settings window, created on the first call at `initialTab` (none: the first tab). A window
// that exists keeps its tab.
void showSettings(AppState& state, std::optional<SettingsTab> initialTab = std::nullopt);
// The settings window once created; it goes away with the services it uses.
QWidget* settingsWindow();
// Shows the history window, created on the first call, then asks its list to reload.
void showHistory(AppState& state);
// The history window once created; it goes away with the state it shows.
QWidget* historyWindow();
void showPermissionFlow(AppState& state);
void showWelcome();
// Starts a new instance of this program, then quits this one; a failed start is ignored.
void restartApp();

} // namespace NubraWindows
