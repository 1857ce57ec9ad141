// History store and export timings. compare_sqlite3.sh runs this next to the sqlite3 shell on the same
// files; set NUBRA_BENCH_DIR to keep the databases for that.
#include "NubraCore/History/HistoryExporter.h"
#include "NubraCore/History/HistoryStore.h"

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

namespace {

constexpr int bigTable = 100'000;

QString benchDir() {
    static QTemporaryDir fallback;
    const QString configured = qEnvironmentVariable("NUBRA_BENCH_DIR");
    return configured.isEmpty() ? fallback.path() : configured;
}

// About the size of a real lookup; one in a thousand mentions "needle".
HistoryRecord sampleRecord(int i, const QDateTime& at) {
    HistoryRecord record;
    record.createdAt = at;
    record.selectedText = (i % 1000 == 0 ? QStringLiteral("the needle ") : QStringLiteral("selection ")) +
                          QString::number(i) + QStringLiteral(" of some text");
    record.contextBefore = QStringLiteral("text that came before the selection, cut");
    record.contextAfter = QStringLiteral("text that came after the selection, cut");
    record.gloss =
        QStringLiteral("An explanation of the selected words with a little **Markdown**, a path a/b, "
                       "and some Chinese 这是一个解释，说明所选文字在上下文中的含义。\n"
                       "- first point\n- second point with more words to make it realistic\n");
    record.contextualMeaning = QStringLiteral("what it means here");
    record.sourceApp = QStringLiteral("Safari");
    record.style = QStringLiteral("plain");
    record.length = QStringLiteral("medium");
    record.model = QStringLiteral("cloud");
    record.creditsCost = 1;
    return record;
}

QList<HistoryRecord> sampleRecords(int count) {
    QList<HistoryRecord> records;
    records.reserve(count);
    const QDateTime start(QDate(2026, 1, 1), QTime(0, 0), Qt::UTC);
    for (int i = 0; i < count; ++i)
        records.append(sampleRecord(i, start.addMSecs(qint64(i) * 1500)));
    return records;
}

// Writes rows the way HistoryStore::insert does, but in one transaction: alone, each insert would sync
// the file, and filling 100 000 rows would take minutes.
void bulkFill(const QString& path, const QList<HistoryRecord>& records) {
    sqlite3* db = nullptr;
    sqlite3_open(path.toUtf8().constData(), &db);
    sqlite3_exec(db, "BEGIN;", nullptr, nullptr, nullptr);
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(
        db,
        "INSERT INTO history (created_at, selected_text, context_before, context_after, gloss, "
        "contextual_meaning, source_app, style, length, model, credits_cost) "
        "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?);",
        -1, &statement, nullptr);
    for (const auto& r : records) {
        const QString texts[] = {HistoryStore::formatTimestamp(r.createdAt),
                                 r.selectedText,
                                 r.contextBefore,
                                 r.contextAfter,
                                 r.gloss,
                                 r.contextualMeaning,
                                 r.sourceApp,
                                 r.style,
                                 r.length,
                                 r.model};
        for (int i = 0; i < 10; ++i) {
            const QByteArray utf8 = texts[i].toUtf8();
            sqlite3_bind_text(statement, i + 1, utf8.constData(), int(utf8.size()), SQLITE_TRANSIENT);
        }
        sqlite3_bind_int(statement, 11, int(r.creditsCost));
        sqlite3_step(statement);
        sqlite3_reset(statement);
    }
    sqlite3_finalize(statement);
    sqlite3_exec(db, "COMMIT;", nullptr, nullptr, nullptr);
    sqlite3_close(db);
}

// The 100 000-row file the listing benchmarks read, built once per run.
HistoryStore& bigStore() {
    static std::unique_ptr<HistoryStore> store = [] {
        const QString path = QDir(benchDir()).filePath(QStringLiteral("search.sqlite3"));
        QFile::remove(path);
        auto opened = std::make_unique<HistoryStore>(path); // creates the schema
        bulkFill(path, sampleRecords(bigTable));
        return opened;
    }();
    return *store;
}

void insertAndTrim(benchmark::State& state) {
    const QString path = QDir(benchDir()).filePath(QStringLiteral("insert.sqlite3"));
    QFile::remove(path);
    HistoryStore store(path);
    const auto records = sampleRecords(200);
    for (const auto& record : records) // start at the limit, as a long-used history does
        store.insert(record);
    std::vector<double> micros;
    int i = 0;
    for (auto _ : state) {
        auto record = records[i++ % records.size()];
        record.createdAt = QDateTime::currentDateTimeUtc();
        const auto begin = std::chrono::steady_clock::now();
        store.insert(record);
        store.enforceLimit(100);
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
        state.SetIterationTime(elapsed.count());
        micros.push_back(elapsed.count() * 1e6);
    }
    std::sort(micros.begin(), micros.end());
    state.counters["median_us"] = micros[micros.size() / 2];
    state.counters["p99_us"] = micros[std::min(micros.size() - 1, micros.size() * 99 / 100)];
}

void searchBigTable(benchmark::State& state) {
    HistoryStore& store = bigStore();
    for (auto _ : state)
        benchmark::DoNotOptimize(store.search(QStringLiteral("needle"), 100));
}

void recentBigTable(benchmark::State& state) {
    HistoryStore& store = bigStore();
    for (auto _ : state)
        benchmark::DoNotOptimize(store.recent(100));
}

void exportJsonl(benchmark::State& state) {
    const auto records = sampleRecords(bigTable);
    qint64 bytes = 0;
    for (auto _ : state) {
        const QByteArray out = HistoryExporter::jsonl(records);
        bytes += out.size();
        benchmark::DoNotOptimize(out.constData());
    }
    state.SetBytesProcessed(bytes);
}

void exportMarkdown(benchmark::State& state) {
    const auto records = sampleRecords(bigTable);
    const QDateTime now = QDateTime::currentDateTimeUtc();
    qint64 bytes = 0;
    for (auto _ : state) {
        const QByteArray out = HistoryExporter::markdown(records, now);
        bytes += out.size();
        benchmark::DoNotOptimize(out.constData());
    }
    state.SetBytesProcessed(bytes);
}

} // namespace

BENCHMARK(insertAndTrim)->UseManualTime()->Iterations(300)->Unit(benchmark::kMicrosecond);
BENCHMARK(searchBigTable)->Unit(benchmark::kMillisecond);
BENCHMARK(recentBigTable)->Unit(benchmark::kMicrosecond);
BENCHMARK(exportJsonl)->Unit(benchmark::kMillisecond);
BENCHMARK(exportMarkdown)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
