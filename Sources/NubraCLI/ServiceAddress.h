#pragma once

#include "NubraCLI/CommandParser.h"

#include <QUrl>

#include <optional>

// Where a command finds the gloss service: --base-url URL, else --dev (the development endpoint),
// else NUBRA_BASE_URL, else the production service.
class ServiceAddress {
public:
    // Adds --base-url and --dev to the command.
    explicit ServiceAddress(CommandParser& command);

    // The address chosen by the parsed line, or nothing after a usage error has been printed.
    std::optional<QUrl> resolve() const;

private:
    CommandParser& m_command;
    QCommandLineOption m_baseUrl;
    QCommandLineOption m_dev;
};
