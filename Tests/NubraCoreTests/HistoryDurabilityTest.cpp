#include <sqlite3.h>

#include <QProcess>
#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <chrono>

namespace {

QStringList column(sqlite3* db, const char* sql) {
    QStringList rows;
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) == SQLITE_OK)
        while (sqlite3_step(statement) == SQLITE_ROW)
            rows << QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)));
    sqlite3_finalize(statement);
    return rows;
}

} // namespace

// A writer process is killed with SIGKILL at random moments; every lookup whose id it had printed must
// survive, and the file must stay intact.
class HistoryDurabilityTest : public QObject {
    Q_OBJECT
private slots:
    void killedWriterLosesNothing() {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("history.sqlite3"));
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

            sqlite3* db = nullptr;
            QCOMPARE(sqlite3_open(path.toUtf8().constData(), &db), SQLITE_OK);
            QCOMPARE(column(db, "PRAGMA integrity_check;"), QStringList{QStringLiteral("ok")});
            const QStringList stored = column(db, "SELECT id FROM history;");
            sqlite3_close(db);
            const QSet<QString> present(stored.begin(), stored.end());
            for (const QString& id : std::as_const(acknowledged))
                QVERIFY2(present.contains(id),
                         qPrintable(QStringLiteral("lost id %1 in round %2").arg(id).arg(rounds)));
        }
        qInfo("%d kills, %lld acknowledged inserts", rounds, qint64(acknowledged.size()));
        QVERIFY(rounds >= 10);
        QVERIFY(!acknowledged.isEmpty());
    }
};

QTEST_GUILESS_MAIN(HistoryDurabilityTest)
#include "HistoryDurabilityTest.moc"
