#pragma once

#include <QStringList>

// Runs `sql` on a connection of its own to the SQLite file at `path`: the first column of every row.
QStringList sqliteColumn(const QString& path, const char* sql);
