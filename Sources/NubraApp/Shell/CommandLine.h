#pragma once

#include "NubraApp/Shell/LaunchRequest.h"

#include <QString>
#include <QStringList>

#include <optional>

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
