#include "NubraCore/History/HistoryFile.h"

#include "NubraCore/Support/PrivateFiles.h"

#include <QDir>
#include <QStandardPaths>

namespace HistoryFile {

QString defaultPath() {
    const QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (base.isEmpty())
        return QStringLiteral(":memory:");
    const QString folder = QDir(base).filePath(QStringLiteral("Nubra"));
    PrivateFiles::ensureFolder(folder); // a failure shows up as an open failure of the store
    return QDir(folder).filePath(QStringLiteral("history.sqlite3"));
}

std::unique_ptr<HistoryStore> openOrMemory(const QString& path) {
    // Failures are dropped without a log line: logging would create the debug log, and whether it
    // exists decides whether the application's start-up line is written.
    try {
        return std::make_unique<HistoryStore>(path);
    } catch (const HistoryStoreError&) {
    }
    try {
        return std::make_unique<HistoryStore>(QStringLiteral(":memory:"));
    } catch (const HistoryStoreError&) {
        return nullptr;
    }
}

} // namespace HistoryFile
