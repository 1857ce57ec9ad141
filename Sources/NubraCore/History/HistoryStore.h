#pragma once

#include "NubraCore/History/HistoryRecord.h"
#include "NubraCore/History/HistoryStoreError.h"

#include <QList>
#include <QString>

#include <chrono>
#include <cstdint>
#include <optional>

struct sqlite3;

// The SQLite database of finished lookups: one connection, one table, one index. Used from the main
// thread only; it has no lock of its own.
class HistoryStore {
public:
    // How long a statement waits for another connection's lock before it fails.
    static constexpr std::chrono::milliseconds busyTimeout{500};

    // Opens (creating if missing) the database at `path` and creates the table and index. The file and
    // its journals are readable by their owner only. ":memory:" gives a database that lives as long as
    // the store. Throws HistoryStoreError.
    explicit HistoryStore(const QString& path);
    ~HistoryStore();
    HistoryStore(const HistoryStore&) = delete;
    HistoryStore& operator=(const HistoryStore&) = delete;

    // Stores every field but `id` and returns the new row's id. Throws execFailed.
    std::int64_t insert(const HistoryRecord& record);

    // Newest first (by time, then by id); at most `limit` records, a negative limit meaning all.
    // Never throws: a failure gives what was read so far.
    QList<HistoryRecord> recent(int limit) const;
    // Records whose selected text or explanation contains `keyword` under SQLite's LIKE: ASCII case
    // is ignored and "%" and "_" in the keyword act as wildcards.
    QList<HistoryRecord> search(const QString& keyword, int limit) const;

    // Number of rows; 0 on any failure.
    int count() const;
    // Removes one row; every failure is ignored.
    void remove(std::int64_t id);
    // Removes every row; ids keep growing afterwards. Throws execFailed.
    void clear();
    // Keeps the newest `n` rows in listing order and removes the rest. Throws execFailed.
    void enforceLimit(int n);

    // The text stored in created_at: UTC with milliseconds and "Z", e.g. 2026-03-05T14:07:09.250Z.
    static QString formatTimestamp(const QDateTime& time);
    // Reads a created_at text; nothing when it is not such a timestamp.
    static std::optional<QDateTime> parseTimestamp(QStringView text);

private:
    void exec(const char* sql);
    QList<HistoryRecord> query(const char* where, const QString* keyword, int limit) const;

    sqlite3* m_db = nullptr;
};
