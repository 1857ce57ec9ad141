#pragma once

#include "NubraCore/History/HistoryStore.h"

#include <QString>

#include <memory>

// Where the history lives on this machine, and opening it so that a session always has one.
namespace HistoryFile {

// ~/.local/share/Nubra/history.sqlite3 on Linux, Application Support/Nubra on macOS (the folder is
// created when missing and kept private to its owner); ":memory:" when there is no data location.
QString defaultPath();

// The store at `path`, or an in-memory one when that cannot be opened, so lookups keep working for the
// session; null only when even that fails.
std::unique_ptr<HistoryStore> openOrMemory(const QString& path);

} // namespace HistoryFile
