#include "CliRun.h"
#include "TestSupport/ServiceProcess.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

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

        m_url =
            startListening(m_service, QStringLiteral(NUBRA_GLOSSD), {u"--manifest"_qs, manifest.fileName()})
                .toString();
        QVERIFY(!m_url.isEmpty());
    }

    void cleanupTestCase() {
        m_service.terminate();
        QVERIFY(m_service.waitForFinished(10'000));
    }

    void aLookupIsStreamed() {
        const auto json = m_home.run({u"gloss"_qs, u"banks"_qs, u"--before"_qs, u"we sat on the river"_qs,
                                      u"--base-url"_qs, m_url, u"--json"_qs, u"--no-history"_qs});
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
