#include "GlossdTestKit.h"
#include "ScriptedUpstream.h"
#include "TestSupport/ServiceProcess.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QTest>

#include <httplib.h>

#include <atomic>

class ShutdownTest : public QObject {
    Q_OBJECT

private slots:
    void sigtermEndsAnOpenStreamCleanly() {
        ScriptedUpstream upstream;
        QProcess service;
        const int port =
            startListening(service, QStringLiteral(NUBRA_GLOSSD_PATH),
                           {u"--backend"_qs, u"openai"_qs, u"--upstream"_qs,
                            QString::fromStdString(upstream.baseUrl()), u"--model"_qs, u"stall"_qs,
                            u"--upstream-timeout"_qs, u"20"_qs, u"--request-deadline"_qs, u"20"_qs})
                .port();
        QVERIFY(port > 0);
        // Nor does a client that is still sending its request hold the service up.
        SlowClients slow(port, {"127.0.0.1"}, std::chrono::milliseconds(100));
        QVERIFY(slow.waitUntilConnected());

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
        const auto events = decodeEvents(body);
        QVERIFY(events.size() >= 3);
        QVERIFY(events.front().as<SSEEvent::Meta>());
        QVERIFY(events.at(1).as<SSEEvent::Delta>());
        const auto* ending = events.back().as<SSEEvent::Error>();
        QVERIFY(ending);
        QCOMPARE(ending->code, u"SHUTTING_DOWN"_qs);
    }

    void badCommandLinesAreRefused() {
        QProcess service;
        service.start(QStringLiteral(NUBRA_GLOSSD_PATH), {u"--backend"_qs, u"magic"_qs});
        QVERIFY(service.waitForFinished(5000));
        QCOMPARE(service.exitCode(), 2);
        QVERIFY(service.readAllStandardError().contains("unknown backend magic"));

        service.start(QStringLiteral(NUBRA_GLOSSD_PATH), {u"--tokens"_qs, u"/nonexistent.json"_qs});
        QVERIFY(service.waitForFinished(5000));
        QCOMPARE(service.exitCode(), 1);
        QVERIFY(service.readAllStandardError().contains("cannot read the tokens file /nonexistent.json"));
    }

    void listeningBeyondLoopbackWithoutTokensWarns() {
        for (const auto& [address, warns] :
             {std::pair(u"127.0.0.1"_qs, false), std::pair(u"0.0.0.0"_qs, true)}) {
            QProcess service;
            service.start(QStringLiteral(NUBRA_GLOSSD_PATH),
                          {u"--backend"_qs, u"fixed"_qs, u"--port"_qs, u"0"_qs, u"--bind"_qs, address});
            QByteArray said;
            QDeadlineTimer deadline(10000);
            while (!said.contains("listening on") && !deadline.hasExpired()) {
                service.waitForReadyRead(100);
                said += service.readAllStandardError();
            }
            service.terminate();
            QVERIFY(service.waitForFinished(5000));
            said += service.readAllStandardError();
            QVERIFY2(said.contains("listening on"), said.constData());
            QCOMPARE(said.contains("warning: listening beyond loopback without --tokens"), warns);
        }
    }
};

QTEST_GUILESS_MAIN(ShutdownTest)
#include "tst_shutdown.moc"
