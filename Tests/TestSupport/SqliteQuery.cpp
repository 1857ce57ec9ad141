#include "TestSupport/SqliteQuery.h"

#include <sqlite3.h>

QStringList sqliteColumn(const QString& path, const char* sql) {
    sqlite3* db = nullptr;
    sqlite3_open(path.toUtf8().constData(), &db);
    sqlite3_stmt* statement = nullptr;
    QStringList rows;
    if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) == SQLITE_OK)
        while (sqlite3_step(statement) == SQLITE_ROW)
            rows << QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)));
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return rows;
}
