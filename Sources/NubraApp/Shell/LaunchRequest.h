#pragma once

#include "NubraApp/Settings/SettingsTab.h"

#include <QString>
#include <QStringView>

#include <optional>

// What one `nubra` command line asks for. The first instance performs it itself after start-up; any
// later one hands it to the running instance (SingleInstance) and exits.
struct LaunchRequest {
    enum class Action {
        // A plain launch: starts Nubra, or reopens the running one.
        reopen,
        history,
        settings,
        pause,
        resume,
        // Captures the current selection as the hot key does and opens the card: what a desktop
        // shortcut runs where Nubra cannot grab a key itself.
        lookup,
        // Freezes the screen for the user to mark text that cannot be selected, and explains it.
        ocr,
        quit,
    };

    Action action = Action::reopen;
    // Only with Action::settings; none keeps the tab the window already shows.
    std::optional<SettingsTab> settingsTab;
    // Use the development service. Matters only to the process that becomes the instance.
    bool dev = false;
    // Sent by the application's own restart: wait for the old instance to go, then take its place.
    bool replace = false;
    // Sent by the install script, and mattering only to the process that becomes the instance: when an
    // update failed after Nubra had quit for it, the note that says why; when this is the new version,
    // the file to create once it is up, so that the script lets the old version go.
    std::optional<QString> updateFailedNote;
    std::optional<QString> updateHealthFile;

    // False for --quit: with nothing running there is nothing to quit, and nothing should start.
    bool startsInstance() const { return action != Action::quit; }

    bool operator==(const LaunchRequest&) const = default;
};

// The action's name, as in its option ("--history") and on the single-instance socket ("history").
QString nameOf(LaunchRequest::Action action);
std::optional<LaunchRequest::Action> actionNamed(QStringView name);
