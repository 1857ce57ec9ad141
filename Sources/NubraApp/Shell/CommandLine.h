#pragma once

#include "NubraApp/Settings/SettingsTab.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringList>

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

namespace CommandLine {

// --help and --version, and refused command lines: the process prints `text` (to standard output for
// code 0, standard error otherwise) and ends with `code`, without starting or forwarding anything.
struct Exit {
    int code = 0;
    QString text;

    bool operator==(const Exit&) const = default;
};

inline constexpr int usageExitCode = 2;

struct Parsed {
    LaunchRequest request;
    std::optional<Exit> exit;
};

// `arguments` without the program name.
Parsed parse(const QStringList& arguments);

QString helpText();
QString versionText();

// Writes the exit's text where it belongs; returns its code, so `return CommandLine::report(*exit);`.
int report(const Exit& exit);

} // namespace CommandLine

// The request as it travels over the single-instance socket: "NBRQ", a version byte, the payload's
// length in two bytes (big-endian, at most maxPayload) and a small JSON object naming the action and
// the tab. The running instance trusts none of it: anything malformed is refused as a whole.
namespace LaunchMessage {

inline constexpr quint8 version = 1;
inline constexpr qsizetype headerSize = 7;
inline constexpr qsizetype maxPayload = 1024;
inline constexpr qsizetype maxFrame = headerSize + maxPayload;

QByteArray encode(const LaunchRequest& request);

struct Decoded {
    enum class Status {
        // Well-formed so far; wait for more bytes.
        incomplete,
        complete,
        invalid,
        // Well-formed header of another protocol version.
        unsupportedVersion,
    };
    Status status = Status::incomplete;
    // Only with complete. Carries the action and tab; dev and replace never travel.
    std::optional<LaunchRequest> request;
};

// `bytes` is everything received on one connection so far.
Decoded decode(QByteArrayView bytes);

} // namespace LaunchMessage
