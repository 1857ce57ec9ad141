#include "TestSupport/SqliteQuery.h"

#include <QProcess>
#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <chrono>

// A writer process is killed with SIGKILL at random moments; every lookup whose id it had printed must
// survive, and the file must stay intact.
class HistoryDurabilityTest : public QObject {
    Q_OBJECT
private slots:
    void killedWriterLosesNothing() {
        QTemporaryDir dir;
        const QString path = dir.filePath(u"history.sqlite3"_qs);
        const quint32 seed = QRandomGenerator::global()->generate();
        qInfo("seed %u", seed);
        QRandomGenerator random(seed);

        QSet<QString> acknowledged;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        int rounds = 0;
        while (rounds < 60 && std::chrono::steady_clock::now() < deadline) {
            ++rounds;
            QProcess writer;
            writer.start(QStringLiteral(NUBRA_HISTORY_WRITER), {path});
            QVERIFY2(writer.waitForStarted(), qPrintable(writer.errorString()));
            // Sometimes during start-up and schema creation, mostly in the middle of inserts.
            if (random.bounded(4) != 0)
                writer.waitForReadyRead(5000);
            QThread::usleep(random.bounded(150'000));
            writer.kill(); // SIGKILL
            QVERIFY(writer.waitForFinished(5000));
            QCOMPARE(writer.exitStatus(), QProcess::CrashExit);

            // Only whole lines count: a partial line was never fully acknowledged.
            const QByteArray output = writer.readAllStandardOutput();
            const QList<QByteArray> lines = output.left(output.lastIndexOf('\n') + 1).split('\n');
            for (const QByteArray& line : lines)
                if (!line.isEmpty())
                    acknowledged.insert(QString::fromLatin1(line));

            QCOMPARE(sqliteColumn(path, "PRAGMA integrity_check;"), QStringList{u"ok"_qs});
            const QStringList stored = sqliteColumn(path, "SELECT id FROM history;");
            const QSet<QString> present(stored.begin(), stored.end());
            for (const QString& id : std::as_const(acknowledged))
                QVERIFY2(present.contains(id), qPrintable(u"lost id %1 in round %2"_qs.arg(id).arg(rounds)));
        }
        qInfo("%d kills, %lld acknowledged inserts", rounds, qint64(acknowledged.size()));
        QVERIFY(rounds >= 10);
        QVERIFY(!acknowledged.isEmpty());
    }
};

QTEST_GUILESS_MAIN(HistoryDurabilityTest)
#include "HistoryDurabilityTest.moc"
