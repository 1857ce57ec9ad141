#include "CliRun.h"
#include "NubraCore/History/HistoryStore.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>
#include <QTimeZone>

// nubra-cli against the real reference service with its offline WordNet backend.
class GlossdTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() {
        QFile manifest(m_home.path(u"manifest.json"_qs));
        QVERIFY(manifest.open(QIODevice::WriteOnly));
        manifest.write("{\"available\":true,\"version\":\"99.0\",\"url\":\"https://dl.example/N.zip\","
                       "\"sha256\":\"" +
                       QByteArray(64, 'a') + "\"}");
        manifest.close();

        m_service.setProgram(QStringLiteral(NUBRA_GLOSSD));
        m_service.setArguments({u"--port"_qs, u"0"_qs, u"--manifest"_qs, manifest.fileName()});
        m_service.start();
        QVERIFY(m_service.waitForStarted());
        // It announces its address on standard error once it listens.
        const QRegularExpression announced(u"listening on (http://[0-9.]+:[0-9]+)"_qs);
        QString said;
        QTRY_VERIFY_WITH_TIMEOUT(
            (said += QString::fromUtf8(m_service.readAllStandardError()), announced.match(said).hasMatch()),
            20'000);
        m_url = announced.match(said).captured(1);
    }

    void cleanupTestCase() {
        m_service.terminate();
        QVERIFY(m_service.waitForFinished(10'000));
    }

    void aLookupIsStreamedStoredAndExported() {
        const QStringList lookup{u"gloss"_qs,      u"banks"_qs, u"--before"_qs, u"we sat on the river"_qs,
                                 u"--base-url"_qs, m_url};
        const auto json = m_home.run(lookup + QStringList{u"--json"_qs, u"--no-history"_qs});
        QCOMPARE(json.exitCode, 0);
        const QList<QByteArray> lines = json.out.trimmed().split('\n');
        QVERIFY(lines.size() >= 3);
        QCOMPARE(QJsonDocument::fromJson(lines.front()).object().value(u"event").toString(), u"meta"_qs);
        const QJsonObject done = QJsonDocument::fromJson(lines.back()).object();
        QCOMPARE(done.value(u"event").toString(), u"done"_qs);
        const QString gloss = done.value(u"gloss").toString();
        const QString meaning = done.value(u"contextual_meaning").toString();
        QVERIFY(gloss.contains(u"bank"_qs));
        QVERIFY(!meaning.isEmpty());
        // The deltas of each field add up to the final text.
        QString streamed;
        for (const QByteArray& line : lines) {
            const QJsonObject event = QJsonDocument::fromJson(line).object();
            if (event.value(u"event").toString() == u"delta" && event.value(u"field").toString() == u"gloss")
                streamed += event.value(u"text").toString();
        }
        QCOMPARE(streamed, gloss);

        const QString db = m_home.path(u"h.sqlite3"_qs);
        const auto text = m_home.run(lookup + QStringList{u"--db"_qs, db});
        QCOMPARE(text.exitCode, 0);
        QCOMPARE(QString::fromUtf8(text.out), gloss + u"\n\nIn this context:\n"_qs + meaning + u'\n');

        HistoryRecord record;
        {
            const HistoryStore store(db);
            QCOMPARE(store.count(), 1);
            record = store.recent(1).front();
        }
        const QString local =
            record.createdAt.toTimeZone(QTimeZone("Asia/Shanghai")).toString(u"yyyy-MM-dd HH:mm:ss");
        const auto flat = [](QString value) { return value.replace(u'\n', u' ').replace(u'\t', u' '); };
        const QByteArray line =
            (QString::number(record.id) + u'\t' + local + u"\tbanks\t"_qs + flat(gloss) + u'\n').toUtf8();
        QCOMPARE(m_home.run({u"history"_qs, u"list"_qs, u"--db"_qs, db}).out, line);
        QCOMPARE(m_home.run({u"history"_qs, u"search"_qs, u"BANKS"_qs, u"--db"_qs, db}).out, line);

        QJsonObject exported{
            {u"contextualMeaning"_qs, meaning},
            {u"createdAt"_qs, QString(record.createdAt.toUTC().toString(u"yyyy-MM-ddTHH:mm:ss") + u'Z')},
            {u"creditsCost"_qs, done.value(u"credits_cost")},
            {u"gloss"_qs, gloss},
            {u"length"_qs, u"medium"_qs},
            {u"model"_qs, u"cloud"_qs},
            {u"selectedText"_qs, u"banks"_qs},
            {u"sourceApp"_qs, QString()},
            {u"style"_qs, u"plain"_qs}};
        const QByteArray jsonl =
            m_home.run({u"history"_qs, u"export"_qs, u"--format"_qs, u"jsonl"_qs, u"--db"_qs, db}).out;
        QCOMPARE(QJsonDocument::fromJson(jsonl).object(), exported);
        QVERIFY(!jsonl.contains('\n'));
        QVERIFY(!jsonl.contains(' ') || gloss.contains(u' '));

        const QByteArray markdown = m_home.run({u"history"_qs, u"export"_qs, u"--db"_qs, db}).out;
        const qsizetype recordStart = markdown.indexOf("## 1. ");
        QVERIFY(recordStart > 0);
        QCOMPARE(markdown.mid(recordStart),
                 (u"## 1. banks\n\n- 时间："_qs + local + u"\n- 来源：未知\n- 消耗："_qs +
                  QString::number(done.value(u"credits_cost").toInteger()) + u" 积分\n\n"_qs + gloss + u'\n')
                     .toUtf8());
    }

    void updateCheckReadsTheServedManifest() {
        const auto result =
            m_home.run({u"update-check"_qs, u"--current"_qs, u"1.0"_qs, u"--base-url"_qs, m_url});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, QByteArray("New version available: 99.0\nhttps://dl.example/N.zip\n"));
    }

private:
    CliHome m_home;
    QProcess m_service;
    QString m_url;
};

QTEST_GUILESS_MAIN(GlossdTest)
#include "tst_glossd.moc"
