#pragma once

#include "NubraCLI/CommandParser.h"
#include "NubraCore/History/HistoryStore.h"

#include <memory>

// The --db option: which history database a command uses (the app's own by default).
class HistoryLocation {
public:
    explicit HistoryLocation(CommandParser& command);

    QString path() const;
    // The store, or nothing after printing why it cannot be opened.
    std::unique_ptr<HistoryStore> open() const;

private:
    CommandParser& m_command;
    QCommandLineOption m_db;
};
