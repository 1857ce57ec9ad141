#pragma once

#include <QString>

#include <optional>

class AppState;
class QWidget;

// The application's windows: each created once, kept when closed and reused. Main thread only.
namespace NubraWindows {

// The settings window's tabs, by the names the command line uses.
enum class SettingsTab { general, gloss, privacy, about };
std::optional<SettingsTab> settingsTabFrom(const QString& name);

void showSettings(AppState& state, std::optional<SettingsTab> initialTab = std::nullopt);
// Shows the history window, created on the first call, then asks its list to reload.
void showHistory(AppState& state);
// The history window once created; it goes away with the state it shows.
QWidget* historyWindow();
void showPermissionFlow(AppState& state);
void showWelcome();
// Starts a new instance of this program, then quits this one; a failed start is ignored.
void restartApp();

} // namespace NubraWindows
