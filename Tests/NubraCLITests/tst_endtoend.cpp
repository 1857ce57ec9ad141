#include "CliRun.h"
#include "NubraBuildInfo/BuildInfo.h"
#include "NubraCore/History/HistoryExporter.h"
#include "NubraCore/History/HistoryStore.h"
#include "NubraCore/Lookup/LookupHistory.h"
#include "TestSupport/LocalHttpServer.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTest>
#include <QTimeZone>

#include <mutex>

using Response = LocalHttpServer::Response;

namespace {

const QByteArray lookupBody =
    "event: meta\ndata: {\"model\":\"wn\",\"estimated_cost\":1,\"credits_remaining\":99}\n\n"
    "event: delta\ndata: {\"field\":\"gloss\",\"text\":\"A sloping \"}\n\n"
    "event: delta\ndata: {\"field\":\"gloss\",\"text\":\"side/bank of land.\"}\n\n"
    "event: delta\ndata: {\"field\":\"contextual_meaning\",\"text\":\"The river's edge.\"}\n\n"
    "event: done\ndata: {\"gloss\":\"A sloping side/bank of land.\",\"contextual_meaning\":"
    "\"The river's edge.\",\"language\":\"en\",\"credits_cost\":2,\"credits_remaining\":97,"
    "\"cached\":false}\n\n";

QString localTime(const QDateTime& time) {
    return time.toTimeZone(QTimeZone("Asia/Shanghai")).toString(u"yyyy-MM-dd HH:mm:ss");
}

} // namespace

class EndToEndTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() {
        qputenv("TZ", "Asia/Shanghai"); // as nubra-cli runs, for the expected exports
        m_server.route("POST", "/v1/gloss", [this](const LocalHttpServer::Request&) {
            const std::lock_guard lock(m_mutex);
            return m_next;
        });
        m_server.route("GET", "/v1/updates/latest", [this](const LocalHttpServer::Request&) {
            const std::lock_guard lock(m_mutex);
            return m_manifest;
        });
        QVERIFY(m_server.start());
    }

    void init() {
        m_home = std::make_unique<CliHome>();
        answer(Response::streamed({lookupBody}));
    }

    void aLookupStreamsIsStoredAndExported() {
        const QString db = m_home->path(u"h.sqlite3"_qs);
        const QString before = QString(55, u'x') + u" the river "_qs;
        const auto gloss =
            cli({u"gloss"_qs, u"bank"_qs, u"--before"_qs, before, u"--after"_qs, u" was steep"_qs,
                 u"--style"_qs, u"languageLearning"_qs, u"--length"_qs, u"detailed"_qs, u"--lang"_qs,
                 u"en"_qs, u"--tier"_qs, u"quality"_qs, u"--db"_qs, db});
        QCOMPARE(gloss.err, QByteArray());
        QCOMPARE(gloss.exitCode, 0);
        QCOMPARE(gloss.out,
                 QByteArray("A sloping side/bank of land.\n\nIn this context:\nThe river's edge.\n"));
        // The whole context is sent; it is cut only for the history, as the card stores it.
        const GlossRequest request(u"bank"_qs, before, u" was steep"_qs, std::nullopt,
                                   GlossStyle::languageLearning, GlossLength::detailed, u"en"_qs,
                                   ModelTier::quality, lastSent().value(u"request_id").toString());
        QCOMPARE(lastSent(), request.toJson());

        const QList<HistoryRecord> stored = HistoryStore(db).recent(-1);
        QCOMPARE(stored.size(), 1);
        HistoryRecord expected = LookupHistory::record(
            request, {u"A sloping side/bank of land."_qs, u"The river's edge."_qs, u"en"_qs, 2, 97, false},
            stored.front().createdAt);
        expected.id = stored.front().id;
        QCOMPARE(stored.front(), expected);
        QVERIFY(qAbs(expected.createdAt.secsTo(QDateTime::currentDateTimeUtc())) < 30);

        const QByteArray line = (QString::number(expected.id) + u'\t' + localTime(expected.createdAt) +
                                 u"\tbank\tA sloping side/bank of land.\n")
                                    .toUtf8();
        QCOMPARE(cli({u"history"_qs, u"list"_qs, u"--db"_qs, db}).out, line);
        // Search looks at the text and the explanation only, ignoring ASCII case.
        QCOMPARE(cli({u"history"_qs, u"search"_qs, u"SLOPING"_qs, u"--db"_qs, db}).out, line);
        const auto miss = cli({u"history"_qs, u"search"_qs, u"river"_qs, u"--db"_qs, db});
        QCOMPARE(miss.exitCode, 0);
        QCOMPARE(miss.out, QByteArray());
        QCOMPARE(cli({u"history"_qs, u"count"_qs, u"--db"_qs, db}).out, QByteArray("1\n"));

        const QByteArray jsonl = HistoryExporter::jsonl(stored);
        QCOMPARE(cli({u"history"_qs, u"export"_qs, u"--format"_qs, u"jsonl"_qs, u"--db"_qs, db}).out, jsonl);
        const QString file = m_home->path(u"out.jsonl"_qs);
        const auto written =
            cli({u"history"_qs, u"export"_qs, u"--format"_qs, u"jsonl"_qs, u"-o"_qs, file, u"--db"_qs, db});
        QCOMPARE(written.exitCode, 0);
        QCOMPARE(written.out, QByteArray());
        QCOMPARE(readFile(file), jsonl);

        // Markdown, stamped with the time of the export.
        const QDateTime exportStart = QDateTime::currentDateTimeUtc().addSecs(-1);
        const QString md = m_home->path(u"out.md"_qs);
        QCOMPARE(
            cli({u"history"_qs, u"export"_qs, u"--format"_qs, u"md"_qs, u"--output"_qs, md, u"--db"_qs, db})
                .exitCode,
            0);
        const QByteArray markdown = readFile(md);
        const QString shown = QRegularExpression(u"导出时间：([0-9-]{10} [0-9:]{8})"_qs)
                                  .match(QString::fromUtf8(markdown))
                                  .captured(1);
        const QDateTime exportedAt(QDate::fromString(shown.left(10), u"yyyy-MM-dd"),
                                   QTime::fromString(shown.mid(11), u"HH:mm:ss"), QTimeZone("Asia/Shanghai"));
        QVERIFY2(exportedAt >= exportStart && exportedAt <= QDateTime::currentDateTimeUtc(),
                 qPrintable(shown));
        QCOMPARE(markdown, HistoryExporter::markdown(stored, exportedAt));
        // The default format is Markdown, written to standard output.
        QVERIFY(cli({u"history"_qs, u"export"_qs, u"--db"_qs, db}).out.startsWith("# Nubra 历史记录导出\n"));

        const auto cleared = cli({u"history"_qs, u"clear"_qs, u"--db"_qs, db});
        QCOMPARE(cleared.out, QByteArray("Records deleted: 1\n"));
        QCOMPARE(cli({u"history"_qs, u"count"_qs, u"--db"_qs, db}).out, QByteArray("0\n"));
    }

    void jsonPrintsOneObjectPerEvent() {
        const auto result = cli({u"gloss"_qs, u"bank"_qs, u"--json"_qs, u"--no-history"_qs});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out,
                 QByteArray(
                     "{\"credits_remaining\":99,\"estimated_cost\":1,\"event\":\"meta\",\"model\":\"wn\"}\n"
                     "{\"event\":\"delta\",\"field\":\"gloss\",\"text\":\"A sloping \"}\n"
                     "{\"event\":\"delta\",\"field\":\"gloss\",\"text\":\"side/bank of land.\"}\n"
                     "{\"event\":\"delta\",\"field\":\"contextual_meaning\",\"text\":\"The river's edge.\"}\n"
                     "{\"cached\":false,\"contextual_meaning\":\"The river's edge.\",\"credits_cost\":2,"
                     "\"credits_remaining\":97,\"event\":\"done\",\"gloss\":\"A sloping side/bank of land.\","
                     "\"language\":\"en\"}\n"));
        // --no-history leaves even the default database untouched.
        QVERIFY(!QFile::exists(m_home->defaultHistoryPath()));
    }

    void theAppsSettingsAreTheDefaults() {
        m_home->writeSettings({u"style=academic"_qs, u"length=short"_qs, u"modelTier=quality"_qs,
                               u"outputLang=zh"_qs, u"recordHistory=false"_qs});
        QCOMPARE(cli({u"gloss"_qs, u"bank"_qs}).exitCode, 0);
        QCOMPARE(lastSent(),
                 GlossRequest(u"bank"_qs, {}, {}, std::nullopt, GlossStyle::academic, GlossLength::short_,
                              u"zh"_qs, ModelTier::quality, lastSent().value(u"request_id").toString())
                     .toJson());
        QVERIFY(!QFile::exists(m_home->defaultHistoryPath())); // recording is off

        m_home->writeSettings({u"recordHistory=true"_qs});
        QCOMPARE(cli({u"gloss"_qs, u"bank"_qs, u"--style"_qs, u"coding"_qs}).exitCode, 0);
        QCOMPARE(lastSent().value(u"style").toString(), u"coding"_qs);
        QCOMPARE(lastSent().value(u"lang").toString(), u"auto"_qs);
        QCOMPARE(cli({u"history"_qs, u"count"_qs}).out, QByteArray("1\n"));
        QCOMPARE(HistoryStore(m_home->defaultHistoryPath()).count(), 1);
    }

    void theHistoryIsTrimmedToItsLimit() {
        const QString db = m_home->path(u"full.sqlite3"_qs);
        {
            HistoryStore store(db);
            const QDateTime start = QDateTime::currentDateTimeUtc().addDays(-200);
            for (int i = 0; i < 100; ++i) {
                HistoryRecord record;
                record.createdAt = start.addDays(i);
                record.selectedText = u"word "_qs + QString::number(i);
                record.gloss = u"old"_qs;
                store.insert(record);
            }
        }
        QCOMPARE(cli({u"gloss"_qs, u"bank"_qs, u"--db"_qs, db}).exitCode, 0);
        const HistoryStore store(db);
        QCOMPARE(store.count(), 100);
        const QList<HistoryRecord> records = store.recent(-1);
        QCOMPARE(records.front().selectedText, u"bank"_qs);
        QCOMPARE(records.back().selectedText, u"word 1"_qs); // the oldest went

        const auto two = cli({u"history"_qs, u"list"_qs, u"--limit"_qs, u"2"_qs, u"--db"_qs, db});
        QCOMPARE(two.out.count('\n'), 2);
        QVERIFY(two.out.contains("\tword 99\told\n"));
    }

    void failuresShowTheCardsMessage_data() {
        QTest::addColumn<Response>("response");
        QTest::addColumn<QByteArray>("out");
        Response limited = Response::whole(429, "{}");
        limited.headers.append(LocalHttpServer::Header{"retry-after", "7"});
        QTest::newRow("401") << Response::whole(401, "{}") << QByteArray();
        QTest::newRow("429") << limited << QByteArray();
        QTest::newRow("500") << Response::whole(500, "{}") << QByteArray();
        QTest::newRow("error event")
            << Response::streamed(
                   {"event: delta\ndata: {\"field\":\"gloss\",\"text\":\"Par\"}\n\n"
                    "event: error\ndata: {\"code\":\"RATE_LIMITED\",\"message\":\"slow down\"}\n\n"})
            << QByteArray("{\"event\":\"delta\",\"field\":\"gloss\",\"text\":\"Par\"}\n"
                          "{\"code\":\"RATE_LIMITED\",\"event\":\"error\",\"message\":\"slow down\"}\n");
    }

    void failuresShowTheCardsMessage() {
        QFETCH(Response, response);
        QFETCH(QByteArray, out);
        answer(response);
        const QString db = m_home->path(u"f.sqlite3"_qs);
        const auto result = cli({u"gloss"_qs, u"bank"_qs, u"--json"_qs, u"--db"_qs, db});
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(result.out, out);
        // Whatever went wrong, the lookup ends as the card does: with the network message.
        QCOMPARE(result.err, QByteArray("Network issue — try again.\n"));
        QCOMPARE(HistoryStore(db).count(), 0);

        m_home->environment().insert(u"LANGUAGE"_qs, u"zh_CN"_qs);
        QCOMPARE(cli({u"gloss"_qs, u"bank"_qs, u"--db"_qs, db}).err, QByteArray("网络异常，请稍后重试。\n"));
    }

    void anUnfinishedAnswerIsAFailure() {
        answer(Response::streamed({"event: delta\ndata: {\"field\":\"gloss\",\"text\":\"Half an\"}\n\n"}));
        const auto result = cli({u"gloss"_qs, u"bank"_qs, u"--no-history"_qs});
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(result.out, QByteArray("Half an\n"));
        QCOMPARE(result.err, QByteArray("The explanation ended before it was complete.\n"));
    }

    void aCorrectedFinalTextIsPrintedWhole() {
        answer(
            Response::streamed({"event: delta\ndata: {\"field\":\"gloss\",\"text\":\"Draft\"}\n\n"
                                "event: done\ndata: {\"gloss\":\"Final\",\"contextual_meaning\":\"\"}\n\n"}));
        const auto result = cli({u"gloss"_qs, u"bank"_qs, u"--no-history"_qs});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, QByteArray("Draft\n\nFinal\n"));

        // A final text that only lost the blank lines around it is not printed twice.
        answer(Response::streamed(
            {"event: delta\ndata: {\"field\":\"gloss\",\"text\":\"Steep \"}\n\n"
             "event: delta\ndata: {\"field\":\"gloss\",\"text\":\"bank\\n\\n\"}\n\n"
             "event: done\ndata: {\"gloss\":\"Steep bank\",\"contextual_meaning\":\"\"}\n\n"}));
        QCOMPARE(cli({u"gloss"_qs, u"bank"_qs, u"--no-history"_qs}).out, QByteArray("Steep bank\n\n"));
    }

    void anOverlongSelectionIsNotSent() {
        const auto before = m_server.requests().size();
        const auto result = cli({u"gloss"_qs, QString(3001, u'a')});
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(result.err,
                 QByteArray("Selection too long (3001 chars, limit 3000). Shorten it and retry.\n"));
        QCOMPARE(m_server.requests().size(), before);
        QCOMPARE(cli({u"gloss"_qs, QString(1500, u'a'), QString(1499, u'b'), u"--no-history"_qs}).exitCode,
                 0);
    }

    void badCommandLinesAreRefused_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("message");
        QTest::newRow("no command") << QStringList{} << u"Usage: nubra-cli <command>"_qs;
        QTest::newRow("unknown command") << QStringList{u"explain"_qs} << u"unknown command 'explain'"_qs;
        QTest::newRow("unknown option")
            << QStringList{u"gloss"_qs, u"x"_qs, u"--colour"_qs} << u"Unknown option 'colour'"_qs;
        QTest::newRow("no text") << QStringList{u"gloss"_qs} << u"nothing to explain"_qs;
        QTest::newRow("wire style") << QStringList{u"gloss"_qs, u"x"_qs, u"--style"_qs,
                                                   u"language_learning"_qs}
                                    << u"unknown value 'language_learning' for --style"_qs;
        QTest::newRow("length case") << QStringList{u"gloss"_qs, u"x"_qs, u"--length"_qs, u"Short"_qs}
                                     << u"takes short|medium|detailed"_qs;
        QTest::newRow("tier") << QStringList{u"gloss"_qs, u"x"_qs, u"--tier"_qs, u"slow"_qs}
                              << u"fast|quality"_qs;
        QTest::newRow("both addresses")
            << QStringList{u"gloss"_qs, u"x"_qs, u"--dev"_qs, u"--base-url"_qs, u"http://127.0.0.1:1"_qs}
            << u"--base-url and --dev exclude each other"_qs;
        QTest::newRow("bad address") << QStringList{u"gloss"_qs, u"x"_qs, u"--base-url"_qs, u"ftp://host"_qs}
                                     << u"not a usable service address: ftp://host"_qs;
        QTest::newRow("search without keyword")
            << QStringList{u"history"_qs, u"search"_qs} << u"exactly one KEYWORD"_qs;
        QTest::newRow("limit") << QStringList{u"history"_qs, u"list"_qs, u"--limit"_qs, u"ten"_qs}
                               << u"--limit takes a whole number, not 'ten'"_qs;
        QTest::newRow("format") << QStringList{u"history"_qs, u"export"_qs, u"--format"_qs, u"csv"_qs}
                                << u"--format takes md or jsonl, not 'csv'"_qs;
        QTest::newRow("history alone")
            << QStringList{u"history"_qs} << u"list, search, count, clear or export"_qs;
        QTest::newRow("count argument")
            << QStringList{u"history"_qs, u"count"_qs, u"all"_qs} << u"unexpected argument: all"_qs;
    }

    void badCommandLinesAreRefused() {
        QFETCH(QStringList, arguments);
        QFETCH(QString, message);
        const auto before = m_server.requests().size();
        const auto result = cli(arguments);
        QCOMPARE(result.exitCode, 2);
        QVERIFY2(result.err.contains(message.toUtf8()), result.err.constData());
        QCOMPARE(result.out, QByteArray());
        QCOMPARE(m_server.requests().size(), before);
    }

    void everyCommandHasHelp() {
        const QList<QStringList> commands{{u"gloss"_qs},
                                          {u"history"_qs, u"list"_qs},
                                          {u"history"_qs, u"search"_qs},
                                          {u"history"_qs, u"count"_qs},
                                          {u"history"_qs, u"clear"_qs},
                                          {u"history"_qs, u"export"_qs},
                                          {u"update-check"_qs}};
        for (const QStringList& command : commands) {
            const auto result = cli(command + QStringList{u"--help"_qs});
            QCOMPARE(result.exitCode, 0);
            QVERIFY2(result.out.startsWith(
                         (u"Usage: nubra-cli "_qs + command.join(u' ') + u" [options]"_qs).toUtf8()),
                     result.out.constData());
            QVERIFY(result.out.contains(command.front() == u"update-check" ? "--current <VERSION>"
                                                                           : "--db <PATH>"));
        }
        QVERIFY(cli({u"--help"_qs}).out.contains("Exit codes: 0 success"));
        QVERIFY(cli({u"history"_qs, u"--help"_qs}).out.startsWith("Usage: nubra-cli history <list|"));
    }

    void unusableFilesAreStorageErrors() {
        const QString missing = m_home->path(u"no/such/dir/h.sqlite3"_qs);
        const auto list = cli({u"history"_qs, u"list"_qs, u"--db"_qs, missing});
        QCOMPARE(list.exitCode, 3);
        QVERIFY(list.err.startsWith(
            QByteArray(QByteArray("nubra-cli: cannot open the history at ") + missing.toUtf8())));

        const QString db = m_home->path(u"ok.sqlite3"_qs);
        const auto unwritable =
            cli({u"history"_qs, u"export"_qs, u"-o"_qs, m_home->path(u"no/dir/x.md"_qs), u"--db"_qs, db});
        QCOMPARE(unwritable.exitCode, 3);
        QVERIFY(unwritable.err.startsWith("nubra-cli: cannot write "));

        // A lookup still works when its history cannot be opened, as in the app.
        const auto gloss = cli({u"gloss"_qs, u"bank"_qs, u"--db"_qs, missing});
        QCOMPARE(gloss.exitCode, 0);
        QVERIFY(gloss.out.startsWith("A sloping"));
    }

    void theServiceAddressIsChosenInOrder() {
        // NUBRA_BASE_URL is used when no option names an address, and an option wins over it.
        m_home->environment().insert(u"NUBRA_BASE_URL"_qs, m_server.url().toString());
        QCOMPARE(m_home->run({u"gloss"_qs, u"bank"_qs, u"--no-history"_qs}).exitCode, 0);
        m_home->environment().insert(u"NUBRA_BASE_URL"_qs, u"http://127.0.0.1:9"_qs);
        QCOMPARE(cli({u"gloss"_qs, u"bank"_qs, u"--no-history"_qs}).exitCode, 0);
        QCOMPARE(m_home->run({u"gloss"_qs, u"bank"_qs, u"--no-history"_qs}).exitCode, 1);
    }

    void updateCheckPrintsTheOutcome() {
        const QByteArray release =
            "{\"ok\":true,\"data\":{\"available\":true,\"version\":\"v1.4.0\",\"notes\":"
            "\"{\\\"en\\\":\\\"Faster\\\",\\\"zh\\\":\\\"更快\\\"}\",\"url\":"
            "\"https://dl.example/N.zip\",\"sha256\":\"" +
            QByteArray(64, 'e') + "\"}}";
        manifest(Response::whole(200, release));
        const QString url = m_server.url().toString();
        const auto newer = cli({u"update-check"_qs, u"--current"_qs, u"1.3"_qs, u"--base-url"_qs, url});
        QCOMPARE(newer.exitCode, 0);
        QCOMPARE(newer.out, QByteArray("New version available: v1.4.0\nFaster\nhttps://dl.example/N.zip\n"));

        const auto same = cli({u"update-check"_qs, u"--current"_qs, u"1.4"_qs, u"--base-url"_qs, url});
        QCOMPARE(same.exitCode, 0);
        QCOMPARE(same.out, QByteArray("You're up to date! Nubra 1.4 is the latest.\n"));

        // Without --current the build's own version is compared.
        manifest(Response::whole(200, QByteArray(release).replace("v1.4.0", BuildInfo::version().toUtf8())));
        QCOMPARE(cli({u"update-check"_qs, u"--base-url"_qs, url}).out,
                 "You're up to date! Nubra " + BuildInfo::version().toUtf8() + " is the latest.\n");

        manifest(Response::whole(500, "{}"));
        const auto failed = cli({u"update-check"_qs, u"--base-url"_qs, url});
        QCOMPARE(failed.exitCode, 1);
        QCOMPARE(failed.out, QByteArray());
        QCOMPARE(failed.err, QByteArray("Could not reach the update service.\n"));
    }

    // What the service sends cannot steer the terminal: escape sequences and a window title command
    // arrive without their control characters, line feeds stay.
    void serverTextPrintsWithoutControlCharacters() {
        const QByteArray gloss = "\\u001b[2JSteep\\u001b]0;pwned\\u0007 \\u009b1mbank\\r\\n";
        answer(Response::streamed({"event: delta\ndata: {\"field\":\"gloss\",\"text\":\"" + gloss +
                                   "\"}\n\nevent: done\ndata: {\"gloss\":\"" + gloss +
                                   "\",\"contextual_meaning\":\"\"}\n\n"}));
        QCOMPARE(cli({u"gloss"_qs, u"bank"_qs, u"--no-history"_qs}).out,
                 QByteArray("[2JSteep]0;pwned 1mbank\n"));

        manifest(Response::whole(
            200,
            "{\"ok\":true,\"data\":{\"available\":true,\"version\":\"v1.4.0\\u001b]0;pwned\\u0007\","
            "\"notes\":\"\\u001b[31mFaster\\u009b0m\",\"url\":\"https://dl.example/N.zip\",\"sha256\":\"" +
                QByteArray(64, 'e') + "\"}}"));
        const auto update = cli(
            {u"update-check"_qs, u"--current"_qs, u"1.3"_qs, u"--base-url"_qs, m_server.url().toString()});
        QCOMPARE(
            update.out,
            QByteArray("New version available: v1.4.0]0;pwned\n[31mFaster0m\nhttps://dl.example/N.zip\n"));
    }

private:
    void manifest(const Response& response) {
        const std::lock_guard lock(m_mutex);
        m_manifest = response;
    }

    void answer(const Response& response) {
        const std::lock_guard lock(m_mutex);
        m_next = response;
    }

    // Runs nubra-cli against the scripted service unless the arguments name an address themselves.
    CliHome::Result cli(QStringList arguments) const {
        const bool isLookup = !arguments.isEmpty() && arguments.front() == u"gloss";
        if (isLookup && !arguments.contains(u"--base-url"_qs) && !arguments.contains(u"--dev"_qs))
            arguments << u"--base-url"_qs << m_server.url().toString();
        return m_home->run(arguments);
    }

    QJsonObject lastSent() const { return QJsonDocument::fromJson(m_server.requests().back().body).object(); }

    static QByteArray readFile(const QString& path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    LocalHttpServer m_server;
    std::mutex m_mutex;
    Response m_next;
    Response m_manifest;
    std::unique_ptr<CliHome> m_home;
};

QTEST_GUILESS_MAIN(EndToEndTest)
#include "tst_endtoend.moc"
