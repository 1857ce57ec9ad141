#include "NubraCLI/HistoryLocation.h"

#include "NubraCLI/Console.h"
#include "NubraCore/History/HistoryFile.h"
#include "NubraCore/Vocabulary/L10n.h"

HistoryLocation::HistoryLocation(CommandParser& command)
    : m_command(command),
      m_db(QStringLiteral("db"),
           L10n::t(
               QStringLiteral("History database file (default: the app's own, ~/.local/share/Nubra/"
                              "history.sqlite3)."),
               QStringLiteral("历史数据库文件（默认为应用自己的 ~/.local/share/Nubra/history.sqlite3）。")),
           QStringLiteral("PATH")) {
    command.addOption(m_db);
}

QString HistoryLocation::path() const {
    return m_command.parser().isSet(m_db) ? m_command.parser().value(m_db) : HistoryFile::defaultPath();
}

std::unique_ptr<HistoryStore> HistoryLocation::open() const {
    const QString file = path();
    try {
        return std::make_unique<HistoryStore>(file);
    } catch (const HistoryStoreError& error) {
        Console::error(
            L10n::t(QStringLiteral("cannot open the history at "), QStringLiteral("无法打开历史记录 ")) +
            file + QStringLiteral(": ") + error.localizedDescription());
        return nullptr;
    }
}
