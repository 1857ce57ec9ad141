#include "GlossdTestKit.h"
#include "ScriptedUpstream.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

#include <httplib.h>

#include <atomic>

namespace {

// Starts the real binary on a free port and returns the port it reports, or 0.
int startService(QProcess& process, const QStringList& arguments) {
    process.setReadChannel(QProcess::StandardError);
    process.start(QStringLiteral(NUBRA_GLOSSD_PATH),
                  arguments + QStringList{QStringLiteral("--port"), QStringLiteral("0")});
    QByteArray err;
    static const QRegularExpression listening(QStringLiteral("listening on http://127\\.0\\.0\\.1:(\\d+)"));
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 10000 && process.state() != QProcess::NotRunning) {
        process.waitForReadyRead(100);
        err += process.readAllStandardError();
        const auto match = listening.match(QString::fromUtf8(err));
        if (match.hasMatch())
            return match.captured(1).toInt();
    }
    return 0;
}

} // namespace

class ShutdownTest : public QObject {
    Q_OBJECT

private slots:
    void sigtermEndsAnOpenStreamCleanly() {
        ScriptedUpstream upstream;
        QProcess service;
        const int port = startService(
            service, {QStringLiteral("--backend"), QStringLiteral("openai"), QStringLiteral("--upstream"),
                      QString::fromStdString(upstream.baseUrl()), QStringLiteral("--model"),
                      QStringLiteral("stall"), QStringLiteral("--upstream-timeout"), QStringLiteral("20")});
        QVERIFY(port > 0);

        std::atomic<bool> firstDelta{false};
        std::string body;
        bool complete = false;
        std::thread reader([&] {
            httplib::Client client("127.0.0.1", port);
            client.set_read_timeout(std::chrono::seconds(10));
            httplib::Request request;
            request.method = "POST";
            request.path = "/v1/gloss";
            request.body = glossBody();
            request.headers = {{"Content-Type", "application/json"}};
            request.content_receiver = [&](const char* data, std::size_t size, std::uint64_t, std::uint64_t) {
                body.append(data, size);
                if (body.find("event: delta") != std::string::npos)
                    firstDelta = true;
                return true;
            };
            httplib::Response response;
            httplib::Error error = httplib::Error::Success;
            complete = client.send(request, response, error) && error == httplib::Error::Success;
        });
        QTRY_VERIFY_WITH_TIMEOUT(firstDelta.load(), 5000);

        QElapsedTimer timer;
        timer.start();
        service.terminate(); // SIGTERM
        QVERIFY(service.waitForFinished(5000));
        reader.join();
        QVERIFY(timer.elapsed() < 2000); // not the 20 s the stalled upstream would have taken
        QCOMPARE(service.exitStatus(), QProcess::NormalExit);
        QCOMPARE(service.exitCode(), 0);

        // The stream got its ending: the chunked body is complete and its last event says why.
        QVERIFY(complete);
        const auto events = parseEvents(body);
        QCOMPARE(events.front().first, std::string("meta"));
        QCOMPARE(events.at(1).first, std::string("delta"));
        QCOMPARE(events.back().first, std::string("error"));
        QCOMPARE(events.back().second.value(u"code").toString(), QStringLiteral("SHUTTING_DOWN"));
    }

    void badCommandLinesAreRefused() {
        QProcess service;
        service.start(QStringLiteral(NUBRA_GLOSSD_PATH),
                      {QStringLiteral("--backend"), QStringLiteral("magic")});
        QVERIFY(service.waitForFinished(5000));
        QCOMPARE(service.exitCode(), 2);
        QVERIFY(service.readAllStandardError().contains("unknown backend magic"));

        service.start(QStringLiteral(NUBRA_GLOSSD_PATH),
                      {QStringLiteral("--tokens"), QStringLiteral("/nonexistent.json")});
        QVERIFY(service.waitForFinished(5000));
        QCOMPARE(service.exitCode(), 1);
        QVERIFY(service.readAllStandardError().contains("cannot read the tokens file /nonexistent.json"));
    }
};

QTEST_GUILESS_MAIN(ShutdownTest)
#include "tst_shutdown.moc"
