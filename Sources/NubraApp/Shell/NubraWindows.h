#pragma once

#include <QString>

#include <optional>

class AppState;

// The application's windows: each created once, kept when closed and reused. Main thread only.
namespace NubraWindows {

// The settings window's tabs, by the names the command line uses.
enum class SettingsTab { general, gloss, privacy, about };
std::optional<SettingsTab> settingsTabFrom(const QString& name);

void showSettings(AppState& state, std::optional<SettingsTab> initialTab = std::nullopt);
void showHistory(AppState& state);
void showPermissionFlow(AppState& state);
void showWelcome();
// Starts a new instance of this program, then quits this one; a failed start is ignored.
void restartApp();

} // namespace NubraWindows
