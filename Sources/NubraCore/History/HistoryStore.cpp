#include "NubraCore/History/HistoryStore.h"

#include "NubraCore/Support/PrivateFiles.h"

#include <sqlite3.h>

#include <QByteArray>

#include <algorithm>
#include <array>
#include <limits>

namespace {

constexpr const char* schemaSql = "CREATE TABLE IF NOT EXISTS history (\n"
                                  "  id INTEGER PRIMARY KEY AUTOINCREMENT,\n"
                                  "  created_at TEXT NOT NULL,\n"
                                  "  selected_text TEXT NOT NULL,\n"
                                  "  context_before TEXT NOT NULL DEFAULT '',\n"
                                  "  context_after TEXT NOT NULL DEFAULT '',\n"
                                  "  gloss TEXT NOT NULL,\n"
                                  "  contextual_meaning TEXT NOT NULL DEFAULT '',\n"
                                  "  source_app TEXT NOT NULL DEFAULT '',\n"
                                  "  style TEXT NOT NULL DEFAULT 'plain',\n"
                                  "  length TEXT NOT NULL DEFAULT 'medium',\n"
                                  "  model TEXT NOT NULL DEFAULT '',\n"
                                  "  credits_cost INTEGER NOT NULL DEFAULT 1\n"
                                  ");\n"
                                  "CREATE INDEX IF NOT EXISTS idx_history_time ON history(created_at DESC);";

constexpr const char* insertSql =
    "INSERT INTO history (created_at, selected_text, context_before, context_after, gloss,\n"
    "  contextual_meaning, source_app, style, length, model, credits_cost)\n"
    "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?);";

constexpr const char* selectSql =
    "SELECT id, created_at, selected_text, context_before, context_after, gloss,\n"
    "       contextual_meaning, source_app, style, length, model, credits_cost\n"
    "FROM history";

// Finalizes a prepared statement on every path out of a scope.
struct Statement {
    sqlite3_stmt* handle = nullptr;
    Statement() = default;
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    ~Statement() { sqlite3_finalize(handle); }
};

QString errorMessage(sqlite3* db) {
    return QString::fromUtf8(sqlite3_errmsg(db));
}

// NULL reads back as the empty text. The byte count keeps text with an embedded NUL whole.
QString columnText(sqlite3_stmt* statement, int column) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
    if (!text)
        return {};
    return QString::fromUtf8(text, sqlite3_column_bytes(statement, column));
}

int clampToInt32(std::int64_t value) {
    return int(std::clamp<std::int64_t>(value, std::numeric_limits<std::int32_t>::min(),
                                        std::numeric_limits<std::int32_t>::max()));
}

// Reads `count` ASCII digits at `at`; -1 when any of them is not a digit.
int digits(QStringView text, qsizetype at, int count) {
    int value = 0;
    for (int i = 0; i < count; ++i) {
        const char16_t c = text[at + i].unicode();
        if (c < u'0' || c > u'9')
            return -1;
        value = value * 10 + (c - u'0');
    }
    return value;
}

bool separatorAt(QStringView text, qsizetype at, char16_t expected) {
    return text[at].unicode() == expected;
}

} // namespace

HistoryStore::HistoryStore(const QString& path) {
    if (!path.isEmpty() && path != u":memory:") {
        // SQLite gives its journals the database's own permissions; older ones are made private too.
        PrivateFiles::ensureFile(path);
        for (const QStringView suffix : {u"-journal", u"-wal", u"-shm"})
            PrivateFiles::restrict(path + suffix);
    }
    const QByteArray file = path.toUtf8();
    if (sqlite3_open(file.constData(), &m_db) != SQLITE_OK) {
        // SQLite hands out a handle even when opening fails; it carries the message and must be closed.
        const QString message = m_db ? errorMessage(m_db) : QStringLiteral("out of memory");
        sqlite3_close(m_db);
        m_db = nullptr;
        throw HistoryStoreError::openFailed(message);
    }
    // Another process reading the file (nubra-cli, a backup) holds its lock for moments; a write waits
    // that long rather than losing the lookup, and no longer, as it runs on the GUI thread.
    sqlite3_busy_timeout(m_db, int(busyTimeout.count()));
    try {
        exec(schemaSql);
    } catch (...) {
        sqlite3_close(m_db);
        m_db = nullptr;
        throw;
    }
}

HistoryStore::~HistoryStore() {
    if (m_db)
        sqlite3_close(m_db);
}

void HistoryStore::exec(const char* sql) {
    char* error = nullptr;
    if (sqlite3_exec(m_db, sql, nullptr, nullptr, &error) != SQLITE_OK) {
        const QString message = error ? QString::fromUtf8(error) : QStringLiteral("unknown");
        sqlite3_free(error);
        throw HistoryStoreError::execFailed(message);
    }
}

std::int64_t HistoryStore::insert(const HistoryRecord& record) {
    // Declared before the statement so the buffers outlive it: the library points at them, no copy.
    const std::array<QByteArray, 10> texts{
        formatTimestamp(record.createdAt).toUtf8(),
        record.selectedText.toUtf8(),
        record.contextBefore.toUtf8(),
        record.contextAfter.toUtf8(),
        record.gloss.toUtf8(),
        record.contextualMeaning.toUtf8(),
        record.sourceApp.toUtf8(),
        record.style.toUtf8(),
        record.length.toUtf8(),
        record.model.toUtf8(),
    };
    Statement statement;
    if (sqlite3_prepare_v2(m_db, insertSql, -1, &statement.handle, nullptr) != SQLITE_OK)
        throw HistoryStoreError::execFailed(errorMessage(m_db));

    for (int i = 0; i < int(texts.size()); ++i)
        sqlite3_bind_text(statement.handle, i + 1, texts[i].constData(), int(texts[i].size()), SQLITE_STATIC);
    sqlite3_bind_int(statement.handle, 11, clampToInt32(record.creditsCost));

    if (sqlite3_step(statement.handle) != SQLITE_DONE)
        throw HistoryStoreError::execFailed(errorMessage(m_db));
    return sqlite3_last_insert_rowid(m_db);
}

QList<HistoryRecord> HistoryStore::recent(int limit) const {
    return query(nullptr, nullptr, limit);
}

QList<HistoryRecord> HistoryStore::search(const QString& keyword, int limit) const {
    return query("(selected_text LIKE ? OR gloss LIKE ?)", &keyword, limit);
}

QList<HistoryRecord> HistoryStore::query(const char* where, const QString* keyword, int limit) const {
    QByteArray sql(selectSql);
    if (where)
        sql += QByteArray(" WHERE ") + where;
    sql += " ORDER BY created_at DESC, id DESC LIMIT " + QByteArray::number(limit) + ';';

    // Used exactly as given: not trimmed, wildcards not escaped. Outlives the statement that points at it.
    const QByteArray pattern = keyword ? ('%' + keyword->toUtf8() + '%') : QByteArray();
    QList<HistoryRecord> records;
    Statement statement;
    if (sqlite3_prepare_v2(m_db, sql.constData(), -1, &statement.handle, nullptr) != SQLITE_OK)
        return records;

    if (keyword) {
        sqlite3_bind_text(statement.handle, 1, pattern.constData(), int(pattern.size()), SQLITE_STATIC);
        sqlite3_bind_text(statement.handle, 2, pattern.constData(), int(pattern.size()), SQLITE_STATIC);
    }

    sqlite3_stmt* row = statement.handle;
    while (sqlite3_step(row) == SQLITE_ROW) {
        HistoryRecord record;
        record.id = sqlite3_column_int64(row, 0);
        // An unreadable time is shown as the time of reading rather than dropping the lookup.
        record.createdAt = parseTimestamp(columnText(row, 1)).value_or(QDateTime::currentDateTimeUtc());
        record.selectedText = columnText(row, 2);
        record.contextBefore = columnText(row, 3);
        record.contextAfter = columnText(row, 4);
        record.gloss = columnText(row, 5);
        record.contextualMeaning = columnText(row, 6);
        record.sourceApp = columnText(row, 7);
        record.style = columnText(row, 8);
        record.length = columnText(row, 9);
        record.model = columnText(row, 10);
        record.creditsCost = sqlite3_column_int(row, 11);
        records.append(std::move(record));
    }
    return records;
}

int HistoryStore::count() const {
    Statement statement;
    if (sqlite3_prepare_v2(m_db, "SELECT COUNT(*) FROM history;", -1, &statement.handle, nullptr) !=
        SQLITE_OK)
        return 0;
    if (sqlite3_step(statement.handle) != SQLITE_ROW)
        return 0;
    return sqlite3_column_int(statement.handle, 0);
}

void HistoryStore::remove(std::int64_t id) {
    Statement statement;
    if (sqlite3_prepare_v2(m_db, "DELETE FROM history WHERE id = ?;", -1, &statement.handle, nullptr) !=
        SQLITE_OK)
        return;
    sqlite3_bind_int64(statement.handle, 1, id);
    sqlite3_step(statement.handle);
}

void HistoryStore::clear() {
    exec("DELETE FROM history;");
}

void HistoryStore::enforceLimit(int n) {
    const QByteArray sql = "DELETE FROM history WHERE id NOT IN (\n"
                           "  SELECT id FROM history ORDER BY created_at DESC, id DESC LIMIT " +
                           QByteArray::number(n) + "\n);";
    exec(sql.constData());
}

QString HistoryStore::formatTimestamp(const QDateTime& time) {
    if (!time.isValid())
        return {};
    return time.toUTC().toString(Qt::ISODateWithMs);
}

std::optional<QDateTime> HistoryStore::parseTimestamp(QStringView text) {
    // yyyy-MM-ddTHH:mm:ss.f… followed by Z or ±HH:MM; the fraction is required, as in what we write.
    constexpr qsizetype fractionStart = 20;
    if (text.size() < fractionStart + 2 || !separatorAt(text, 4, u'-') || !separatorAt(text, 7, u'-') ||
        !separatorAt(text, 10, u'T') || !separatorAt(text, 13, u':') || !separatorAt(text, 16, u':') ||
        !separatorAt(text, 19, u'.'))
        return std::nullopt;
    const int year = digits(text, 0, 4), month = digits(text, 5, 2), day = digits(text, 8, 2);
    const int hour = digits(text, 11, 2), minute = digits(text, 14, 2), second = digits(text, 17, 2);
    if (year < 0 || month < 0 || day < 0 || hour < 0 || minute < 0 || second < 0)
        return std::nullopt;

    qsizetype at = fractionStart;
    int millis = 0, fractionDigits = 0;
    while (at < text.size() && text[at].isDigit() && text[at].unicode() < 128) {
        if (fractionDigits < 3)
            millis = millis * 10 + (text[at].unicode() - u'0');
        ++fractionDigits;
        ++at;
    }
    if (fractionDigits == 0)
        return std::nullopt;
    for (int i = fractionDigits; i < 3; ++i)
        millis *= 10;

    int offsetSeconds = 0;
    const QStringView zone = text.mid(at);
    if (zone != u"Z") {
        if (zone.size() != 6 || (zone[0] != u'+' && zone[0] != u'-') || !separatorAt(zone, 3, u':'))
            return std::nullopt;
        const int zoneHours = digits(zone, 1, 2), zoneMinutes = digits(zone, 4, 2);
        if (zoneHours < 0 || zoneMinutes < 0 || zoneHours > 23 || zoneMinutes > 59)
            return std::nullopt;
        offsetSeconds = (zoneHours * 3600 + zoneMinutes * 60) * (zone[0] == u'-' ? -1 : 1);
    }

    const QDate date(year, month, day);
    const QTime clock(hour, minute, second, millis);
    if (!date.isValid() || !clock.isValid())
        return std::nullopt;
    return QDateTime(date, clock, Qt::UTC).addSecs(-offsetSeconds);
}
