#include "NubraCore/History/HistoryStore.h"
#include "TestSupport/FileMode.h"
#include "TestSupport/SqliteQuery.h"

#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>

#include <limits>
#include <thread>

#include <sqlite3.h>

namespace {

HistoryRecord makeRecord(const QString& text, const QDateTime& at) {
    HistoryRecord record;
    record.createdAt = at;
    record.selectedText = text;
    record.gloss = u"gloss of "_qs + text;
    record.style = u"plain"_qs;
    record.length = u"medium"_qs;
    record.model = u"cloud"_qs;
    record.creditsCost = 1;
    return record;
}

QDateTime at(int second, int ms = 0) {
    return QDateTime(QDate(2026, 3, 5), QTime(14, 7, second, ms), Qt::UTC);
}

QStringList texts(const QList<HistoryRecord>& records) {
    QStringList out;
    for (const auto& record : records)
        out << record.selectedText;
    return out;
}

template <typename Operation>
void expectFailure(HistoryStoreError::Kind kind, const char* message, Operation operation) {
    try {
        operation();
        QFAIL("no error");
    } catch (const HistoryStoreError& error) {
        QCOMPARE(error.kind(), kind);
        QCOMPARE(error.localizedDescription(), QString::fromUtf8(message));
        QCOMPARE(QString::fromUtf8(error.what()), error.message());
    }
}

} // namespace

class HistoryStoreTest : public QObject {
    Q_OBJECT
private slots:
    void init() { m_path = m_dir.filePath(QString::number(++m_counter) + u".sqlite3"_qs); }

    void openFailuresAreTyped() {
        expectFailure(HistoryStoreError::Kind::openFailed, "unable to open database file",
                      [&] { HistoryStore(m_dir.filePath(u"missing/folder/h.sqlite3"_qs)); });
        // SQLite opens lazily: a file that is not a database fails when the schema runs.
        QFile junk(m_path);
        QVERIFY(junk.open(QIODevice::WriteOnly));
        junk.write(QByteArray(4096, 'x'));
        junk.close();
        expectFailure(HistoryStoreError::Kind::execFailed, "file is not a database",
                      [&] { HistoryStore{m_path}; });
    }

    void schemaAndReopen() {
        {
            HistoryStore store(m_path);
            store.insert(makeRecord(u"kept"_qs, at(1)));
        }
        HistoryStore again(m_path);
        QCOMPARE(texts(again.recent(10)), QStringList{u"kept"_qs});

        const QStringList columns =
            sqliteColumn(m_path, "SELECT name || ' ' || type || ' ' || \"notnull\" || ' ' || "
                                 "coalesce(dflt_value, '-') || ' ' || pk "
                                 "FROM pragma_table_info('history');");
        QCOMPARE(columns, (QStringList{
                              "id INTEGER 0 - 1",
                              "created_at TEXT 1 - 0",
                              "selected_text TEXT 1 - 0",
                              "context_before TEXT 1 '' 0",
                              "context_after TEXT 1 '' 0",
                              "gloss TEXT 1 - 0",
                              "contextual_meaning TEXT 1 '' 0",
                              "source_app TEXT 1 '' 0",
                              "style TEXT 1 'plain' 0",
                              "length TEXT 1 'medium' 0",
                              "model TEXT 1 '' 0",
                              "credits_cost INTEGER 1 1 0",
                          }));
        QCOMPARE(sqliteColumn(m_path, "SELECT sql FROM sqlite_master WHERE name = 'idx_history_time';"),
                 QStringList{"CREATE INDEX idx_history_time ON history(created_at DESC)"});
    }

    // The history is private: a new database, and one (with journals) an older version left readable.
    void filesAreForTheOwnerOnly() {
        {
            HistoryStore fresh(m_path);
            QCOMPARE(fileMode(m_path), 0600);
        }
        const QStringList files{m_path, m_path + u"-journal"_qs, m_path + u"-wal"_qs, m_path + u"-shm"_qs};
        for (const QString& file : files) {
            QVERIFY(QFile(file).open(QIODevice::Append));
            QVERIFY(setFileMode(file, 0644));
        }
        HistoryStore store(m_path);
        QCOMPARE(store.count(), 0);
        for (const QString& file : files)
            QVERIFY2(fileMode(file) == 0600, qPrintable(file));
    }

    void recordsRoundTripExactly() {
        HistoryStore store(m_path);
        HistoryRecord record;
        record.id = 999; // ignored by insert
        record.createdAt = at(9, 250);
        record.selectedText = u"多行\n文本 🧪\r\nend"_qs;
        record.contextBefore = u"before 前"_qs;
        record.contextAfter = u"after\tafter"_qs;
        record.gloss = u"**解释** with / and \"quotes\"\n- item"_qs;
        record.contextualMeaning = u"meaning"_qs;
        record.sourceApp = u"Safari"_qs;
        record.style = u"language_learning"_qs;
        record.length = u"detailed"_qs;
        record.model = u"cloud"_qs;
        record.creditsCost = -7;
        const std::int64_t id = store.insert(record);
        QVERIFY(id != 999);

        const auto listed = store.recent(10);
        QCOMPARE(listed.size(), 1);
        record.id = id;
        QCOMPARE(listed.front(), record);
        QCOMPARE(sqliteColumn(m_path, "SELECT created_at FROM history;"),
                 QStringList{"2026-03-05T14:07:09.250Z"});

        // A time in another zone is stored as the same instant in UTC.
        record.createdAt = QDateTime(QDate(2026, 3, 5), QTime(23, 0, 0, 5), QTimeZone(8 * 3600));
        store.insert(record);
        QCOMPARE(sqliteColumn(m_path, "SELECT created_at FROM history ORDER BY id;").value(1),
                 u"2026-03-05T15:00:00.005Z"_qs);
    }

    void aReaderOfTheFileDelaysAnInsertWithoutLosingIt() {
        HistoryStore store(m_path);
        sqlite3* reader = nullptr;
        QCOMPARE(sqlite3_open(m_path.toUtf8().constData(), &reader), SQLITE_OK);
        QCOMPARE(sqlite3_exec(reader, "BEGIN; SELECT count(*) FROM history;", nullptr, nullptr, nullptr),
                 SQLITE_OK);
        std::thread finishes([reader] {
            std::this_thread::sleep_for(HistoryStore::busyTimeout / 5);
            sqlite3_exec(reader, "COMMIT;", nullptr, nullptr, nullptr);
        });
        store.insert(makeRecord(u"kept"_qs, at(1)));
        finishes.join();
        sqlite3_close(reader);
        QCOMPARE(texts(store.recent(10)), QStringList{u"kept"_qs});
    }

    void costIsClampedTo32Bits() {
        HistoryStore store(m_path);
        auto record = makeRecord(u"big"_qs, at(1));
        record.creditsCost = std::int64_t(1) << 40;
        store.insert(record);
        record.creditsCost = -(std::int64_t(1) << 40);
        record.createdAt = at(0);
        store.insert(record);
        const auto listed = store.recent(10);
        QCOMPARE(listed.at(0).creditsCost, std::int64_t(std::numeric_limits<std::int32_t>::max()));
        QCOMPARE(listed.at(1).creditsCost, std::int64_t(std::numeric_limits<std::int32_t>::min()));
    }

    void idsKeepGrowingAfterClearAndDelete() {
        HistoryStore store(m_path);
        const auto first = store.insert(makeRecord(u"a"_qs, at(1)));
        const auto second = store.insert(makeRecord(u"b"_qs, at(2)));
        QVERIFY(second > first);
        QCOMPARE(store.count(), 2);
        store.remove(first);
        store.remove(12345); // absent: ignored
        QCOMPARE(texts(store.recent(10)), QStringList{u"b"_qs});
        store.clear();
        QCOMPARE(store.count(), 0);
        QVERIFY(store.insert(makeRecord(u"c"_qs, at(3))) > second);
    }

    void orderingAndTrimming() {
        HistoryStore store(m_path);
        // Inserted out of time order; "tie-low" and "tie-high" share a time stamp.
        store.insert(makeRecord(u"t3"_qs, at(3)));
        store.insert(makeRecord(u"tie-low"_qs, at(5)));
        store.insert(makeRecord(u"t1"_qs, at(1)));
        store.insert(makeRecord(u"tie-high"_qs, at(5)));
        store.insert(makeRecord(u"t4"_qs, at(4, 999)));
        const QStringList newestFirst{"tie-high", "tie-low", "t4", "t3", "t1"};
        QCOMPARE(texts(store.recent(10)), newestFirst);
        QCOMPARE(texts(store.recent(2)), newestFirst.mid(0, 2));
        QCOMPARE(texts(store.recent(-1)), newestFirst);
        QVERIFY(store.recent(0).isEmpty());

        store.enforceLimit(-1);
        QCOMPARE(store.count(), 5);
        store.enforceLimit(3);
        QCOMPARE(texts(store.recent(10)), newestFirst.mid(0, 3));
        store.enforceLimit(0);
        QCOMPARE(store.count(), 0);
    }

    void searchUsesLikeAsGiven() {
        HistoryStore store(m_path);
        store.insert(makeRecord(u"costs 50 dollars"_qs, at(1)));
        store.insert(makeRecord(u"abc"_qs, at(2)));
        store.insert(makeRecord(u"Hello World"_qs, at(3)));
        auto explained = makeRecord(u"zzz"_qs, at(4));
        explained.gloss = u"the word world in the explanation"_qs;
        store.insert(explained);

        QCOMPARE(texts(store.search(u"50%"_qs, 10)), QStringList{"costs 50 dollars"});
        QCOMPARE(texts(store.search(u"a_c"_qs, 10)), QStringList{"abc"});
        QCOMPARE(texts(store.search(u"WORLD"_qs, 10)), (QStringList{"zzz", "Hello World"}));
        QCOMPARE(texts(store.search(u"WORLD"_qs, 1)), QStringList{"zzz"});
        // Blanks stay in the pattern: only the explanation has "world" followed by a blank.
        QCOMPARE(texts(store.search(u"World "_qs, 10)), QStringList{"zzz"});
        QCOMPARE(store.search(QString(), 10).size(), 4);
    }

    void unreadableRowsStillList() {
        // A table made without the NOT NULL constraints is reused as it is, so NULLs can be read back.
        QVERIFY(sqliteColumn(m_path,
                             "CREATE TABLE history (id INTEGER PRIMARY KEY AUTOINCREMENT, created_at, "
                             "selected_text, context_before, context_after, gloss, contextual_meaning, "
                             "source_app, style, length, model, credits_cost);")
                    .isEmpty());
        sqliteColumn(m_path, "INSERT INTO history (created_at, selected_text) VALUES ('yesterday', NULL);");
        sqliteColumn(m_path,
                     "INSERT INTO history (created_at, selected_text) VALUES ('2026-03-05T14:07:09Z', 'x');");
        HistoryStore store(m_path);
        const QDateTime before = QDateTime::currentDateTimeUtc();
        const auto listed = store.recent(10);
        const QDateTime after = QDateTime::currentDateTimeUtc();
        QCOMPARE(listed.size(), 2);
        for (const auto& record : listed) {
            QVERIFY(record.createdAt >= before && record.createdAt <= after);
            QCOMPARE(record.gloss, QString());
            QCOMPARE(record.creditsCost, std::int64_t(0));
        }
    }

    void timestampParsing_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QDateTime>("expected");
        QTest::newRow("ms") << "2026-03-05T14:07:09.250Z" << at(9, 250);
        QTest::newRow("one digit") << "2026-03-05T14:07:09.5Z" << at(9, 500);
        QTest::newRow("offset") << "2026-03-05T16:07:09.000+02:00" << at(9);
        QTest::newRow("no fraction") << "2026-03-05T14:07:09Z" << QDateTime();
        QTest::newRow("no zone") << "2026-03-05T14:07:09.250" << QDateTime();
        QTest::newRow("bad month") << "2026-13-05T14:07:09.250Z" << QDateTime();
        QTest::newRow("blank") << "" << QDateTime();
    }

    void timestampParsing() {
        QFETCH(QString, text);
        QFETCH(QDateTime, expected);
        const auto parsed = HistoryStore::parseTimestamp(text);
        QCOMPARE(parsed.has_value(), expected.isValid());
        if (parsed)
            QCOMPARE(*parsed, expected);
    }

    void failuresOnAMissingTable() {
        HistoryStore store(m_path);
        store.insert(makeRecord(u"gone"_qs, at(1)));
        sqliteColumn(m_path, "DROP TABLE history;");
        expectFailure(HistoryStoreError::Kind::execFailed, "no such table: history",
                      [&] { store.insert(makeRecord(u"x"_qs, at(2))); });
        expectFailure(HistoryStoreError::Kind::execFailed, "no such table: history", [&] { store.clear(); });
        expectFailure(HistoryStoreError::Kind::execFailed, "no such table: history",
                      [&] { store.enforceLimit(3); });
        // Reading and deleting one row never fail outward.
        QVERIFY(store.recent(10).isEmpty());
        QVERIFY(store.search(u"x"_qs, 10).isEmpty());
        QCOMPARE(store.count(), 0);
        store.remove(1);
    }

private:
    QTemporaryDir m_dir;
    QString m_path;
    int m_counter = 0;
};

QTEST_APPLESS_MAIN(HistoryStoreTest)
#include "tst_history.moc"
