#include "GlossdTestKit.h"

#include "NubraGlossd/FixedBackend.h"
#include "NubraGlossd/RateLimiter.h"
#include "NubraGlossd/SSEWriter.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

#include <httplib.h>

namespace {

QJsonObject jsonOf(const httplib::Result& result) {
    return QJsonDocument::fromJson(QByteArray::fromStdString(result->body)).object();
}

QString errorMessage(const httplib::Result& result) {
    return jsonOf(result).value(u"error").toObject().value(u"message").toString();
}

ServerSetup fixedSetup() {
    ServerSetup setup;
    setup.backend = std::make_unique<FixedBackend>();
    setup.accessLog = std::tmpfile();
    return setup;
}

// The status of a lookup, with the device token `token` when one is given.
int lookupStatus(httplib::Client& client, const std::string& token = {}) {
    httplib::Headers headers;
    if (!token.empty())
        headers.emplace("authorization", "Bearer " + token);
    return client.Post("/v1/gloss", headers, glossBody(), "application/json")->status;
}

httplib::Result refresh(httplib::Client& client, const char* body) {
    return client.Post("/v1/auth/refresh", body, "application/json");
}

std::string readAll(std::FILE* file) {
    std::rewind(file);
    std::string text;
    for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file))
        text += char(c);
    return text;
}

} // namespace

class ServerTest : public QObject {
    Q_OBJECT

private slots:
    void lookupStreamsWhatTheClientDecodes() {
        RunningServer server(fixedSetup());
        const auto result =
            server.client()->Post("/v1/gloss", glossBody({}, {}, u"bank"_qs), "application/json");
        QVERIFY(result);
        QCOMPARE(result->status, 200);
        QCOMPARE(result->get_header_value("Content-Type"), std::string("text/event-stream"));
        const GlossResult done{
            u"bank: a fixed answer."_qs, u"The same in every context."_qs, u"en"_qs, 0, 0, false};
        const std::vector<SSEEvent> expected{
            {SSEEvent::Meta{u"fixed"_qs, 0, 0}},
            {SSEEvent::Delta{u"gloss"_qs, done.gloss}},
            {SSEEvent::Delta{u"contextual_meaning"_qs, done.contextualMeaning}},
            {SSEEvent::Done{done}}};
        QVERIFY(decodeEvents(result->body) == expected);

        const std::vector<SSEEvent> written{{SSEEvent::Meta{u"m1"_qs, 3, 7}},
                                            {SSEEvent::Delta{u"gloss"_qs, u"two\nlines"_qs}},
                                            {SSEEvent::Error{u"X"_qs, u"m"_qs}}};
        QVERIFY(decodeEvents(SSEWriter::meta(u"m1"_qs, 3, 7) +
                             SSEWriter::delta(u"gloss"_qs, u"two\nlines"_qs) +
                             SSEWriter::error(u"X"_qs, u"m"_qs)) == written);
    }

    void bodiesAreCheckedMemberByMember_data() {
        QTest::addColumn<QString>("body");
        QTest::addColumn<QString>("message"); // of the 400 answer; none: accepted
        QTest::newRow("language_learning style")
            << QString::fromStdString(glossBody(u"style"_qs, u"language_learning"_qs)) << QString();
        QTest::newRow("source_app") << QString::fromStdString(glossBody(u"source_app"_qs, "Notes"))
                                    << QString();
        QTest::newRow("not json") << u"{oops"_qs << u"not valid JSON"_qs;
        QTest::newRow("array") << u"[]"_qs << u"must be a JSON object"_qs;
        QTest::newRow("missing") << QString::fromStdString(glossBody(u"context_after"_qs))
                                 << u"The member \"context_after\" is missing."_qs;
        QTest::newRow("wrong type") << QString::fromStdString(glossBody(u"lang"_qs, 3))
                                    << u"The member \"lang\" must be a string."_qs;
        QTest::newRow("source_app type") << QString::fromStdString(glossBody(u"source_app"_qs, true))
                                         << u"The member \"source_app\" must be a string."_qs;
        QTest::newRow("empty selection") << QString::fromStdString(glossBody(u"selected_text"_qs, " "))
                                         << u"The member \"selected_text\" is empty."_qs;
        QTest::newRow("raw style") << QString::fromStdString(glossBody(u"style"_qs, "languageLearning"))
                                   << QStringLiteral(
                                          "Unknown style \"languageLearning\"; expected one of: plain, "
                                          "academic, coding, language_learning.");
        QTest::newRow("length") << QString::fromStdString(glossBody(u"length"_qs, "Short"))
                                << QStringLiteral("Unknown length \"Short\"; expected one of: short, medium, "
                                                  "detailed.");
        QTest::newRow("tier") << QString::fromStdString(glossBody(u"model_tier"_qs, "best"))
                              << QStringLiteral(
                                     "Unknown model_tier \"best\"; expected one of: fast, quality.");
        QTest::newRow("too large") << QString(64 * 1024 + 1, u'a')
                                   << u"The request body is larger than 65536 bytes."_qs;
    }
    void bodiesAreCheckedMemberByMember() {
        QFETCH(QString, body);
        QFETCH(QString, message);
        RunningServer server(fixedSetup());
        const auto result = server.client()->Post("/v1/gloss", body.toStdString(), "application/json");
        QVERIFY(result);
        QCOMPARE(result->status, message.isEmpty() ? 200 : 400);
        if (message.isEmpty())
            return;
        QCOMPARE(jsonOf(result).value(u"ok").toBool(true), false);
        QVERIFY2(errorMessage(result).contains(message), qPrintable(errorMessage(result)));
    }

    void bodiesWithoutAStatedLengthAreRefusedUnread() {
        RunningServer server(fixedSetup());
        const std::string body = glossBody();
        const auto chunkSize = QByteArray::number(qulonglong(body.size()), 16).toStdString();
        // Chunked: the client never says how much is coming. Compressed: the stated length says
        // nothing about what the body becomes. Each request arrives whole, so the answer cannot race
        // the body into the socket.
        const std::string requests[] = {
            "POST /v1/gloss HTTP/1.1\r\nHost: x\r\nConnection: close\r\nContent-Type: application/json\r\n"
            "Transfer-Encoding: chunked\r\n\r\n" +
                chunkSize + "\r\n" + body + "\r\n0\r\n\r\n",
            "POST /v1/gloss HTTP/1.1\r\nHost: x\r\nConnection: close\r\nContent-Type: application/json\r\n"
            "Content-Encoding: gzip\r\nContent-Length: " +
                std::to_string(body.size()) + "\r\n\r\n" + body};
        for (const std::string& request : requests) {
            const QByteArray answer = QByteArray::fromStdString(exchange(server.port(), request));
            QVERIFY2(answer.startsWith("HTTP/1.1 400 "), answer.constData());
            QVERIFY2(answer.contains("uncompressed, with a Content-Length"), answer.constData());
            QCOMPARE(answer.count("HTTP/1.1 "), 1);
        }
    }

    void tokensAreCheckedAndRefreshed() {
        ServerSetup setup = fixedSetup();
        setup.tokens =
            std::make_unique<TokenRegistry>(std::set<QString>{u"dev-1"_qs}, std::set<QString>{u"ref-1"_qs});
        std::FILE* log = setup.accessLog;
        RunningServer server(std::move(setup));
        auto client = server.client();

        QCOMPARE(lookupStatus(*client), 401);
        QCOMPARE(lookupStatus(*client, "dev-2"), 401);
        QCOMPARE(lookupStatus(*client, "dev-1"), 200);

        QCOMPARE(refresh(*client, R"({"refresh_token":"nope","device_id":"d"})")->status, 401);
        QCOMPARE(refresh(*client, R"({"refresh_token":"ref-1"})")->status, 400);
        const auto renewed = refresh(*client, R"({"refresh_token":"ref-1","device_id":"d"})");
        QCOMPARE(renewed->status, 200);
        QCOMPARE(jsonOf(renewed).value(u"ok").toBool(), true);
        const QString token = jsonOf(renewed).value(u"data").toObject().value(u"device_token").toString();
        QVERIFY(token.size() >= 32);
        QCOMPARE(lookupStatus(*client, token.toStdString()), 200);

        // Every request is logged, no credential ever is.
        server.stop();
        const std::string logged = readAll(log);
        QCOMPARE(std::count(logged.begin(), logged.end(), '\n'), 7);
        QVERIFY(logged.find("\"POST /v1/auth/refresh\" 401") != std::string::npos);
        QVERIFY(logged.find("dev-1") == std::string::npos);
        QVERIFY(logged.find("ref-1") == std::string::npos);
        QVERIFY(logged.find(token.toStdString()) == std::string::npos);
        std::fclose(log);
    }

    // A fixed manifest is nubra-cli's tst_glossd's; without one, nothing is offered.
    void withoutTokensOrManifestNothingIsNeededOrOffered() {
        RunningServer server(fixedSetup());
        QCOMPARE(server.client()->Get("/v1/updates/latest")->body,
                 std::string(R"({"data":{"available":false},"ok":true})"));
        QCOMPARE(lookupStatus(*server.client(), "whatever"), 200);
        QCOMPARE(refresh(*server.client(), R"({"refresh_token":"r","device_id":"d"})")->status, 404);
    }

    // A releases folder: its manifest as it is now, and its files by name, nothing outside it.
    void releasesFolderServesItsManifestAndFiles() {
        QTemporaryDir root;
        const QString folder = root.filePath(u"releases"_qs);
        QVERIFY(QDir().mkpath(folder));
        const auto write = [](const QString& path, const QByteArray& bytes) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
        };
        write(root.filePath(u"secret.txt"_qs), "outside");
        ServerSetup setup = fixedSetup();
        setup.releasesDir = folder;
        RunningServer server(std::move(setup));
        auto client = server.client();
        QCOMPARE(jsonOf(client->Get("/v1/updates/latest")).value(u"data").toObject().value(u"available"),
                 QJsonValue(false));

        const QByteArray archive("\x1f\x8b release bytes \x00\xff", 20);
        write(folder + u"/Nubra-0.2.0.tar.gz"_qs, archive);
        write(folder + u"/manifest.json"_qs, R"({"available":true,"version":"0.2.0"})");
        QCOMPARE(jsonOf(client->Get("/v1/updates/latest")).value(u"data").toObject().value(u"version"),
                 QJsonValue(u"0.2.0"_qs));
        const auto file = client->Get("/releases/Nubra-0.2.0.tar.gz");
        QCOMPARE(file->status, 200);
        QCOMPARE(QByteArray::fromStdString(file->body), archive);
        for (const char* outside : {"/releases/../secret.txt", "/releases/%2e%2e/secret.txt", "/secret.txt"})
            QVERIFY2(client->Get(outside)->body != "outside", outside);

        // A bare file name becomes its address on the host the client asked for; absolute ones stay.
        const auto urlFor = [&](const char* url, const httplib::Headers& headers) {
            write(folder + u"/manifest.json"_qs,
                  QJsonDocument(QJsonObject{{u"available"_qs, true}, {u"url"_qs, QLatin1String(url)}})
                      .toJson());
            return jsonOf(client->Get("/v1/updates/latest", headers)).value(u"data").toObject().value(u"url");
        };
        const QString served = urlFor("Nubra-0.2.0.tar.gz", {}).toString();
        QCOMPARE(served, u"http://127.0.0.1:%1/releases/Nubra-0.2.0.tar.gz"_qs.arg(server.port()));
        QCOMPARE(QByteArray::fromStdString(client->Get(QUrl(served).path().toStdString())->body), archive);
        QCOMPARE(urlFor("Nubra-0.2.0.tar.gz", {{"Host", "updates.example:8443"}}),
                 QJsonValue(u"http://updates.example:8443/releases/Nubra-0.2.0.tar.gz"_qs));
        QCOMPARE(urlFor("https://cdn.example/Nubra.tar.gz", {}),
                 QJsonValue(u"https://cdn.example/Nubra.tar.gz"_qs));

        write(folder + u"/manifest.json"_qs, "[]");
        QCOMPARE(client->Get("/v1/updates/latest")->status, 500);
    }

    // Keyed on the device token where tokens are required, else on the peer's address: the
    // x-device-id a client sends changes nothing. Token refreshes are limited per address.
    void rateLimitIsPerTokenOrAddress() {
        ServerSetup setup = fixedSetup();
        setup.ratePerMinute = 2;
        RunningServer open(std::move(setup));
        const auto lookup = [&](const std::string& device, const std::string& from = "127.0.0.1") {
            const std::string body = glossBody();
            return QByteArray::fromStdString(exchange(
                open.port(),
                "POST /v1/gloss HTTP/1.1\r\nHost: x\r\nConnection: close\r\nx-device-id: " + device +
                    "\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
                    "\r\n\r\n" + body,
                from));
        };
        QVERIFY(lookup("A").startsWith("HTTP/1.1 200 "));
        QVERIFY(lookup("B").startsWith("HTTP/1.1 200 "));
        const QByteArray limited = lookup("C");
        QVERIFY2(limited.startsWith("HTTP/1.1 429 "), limited.constData());
        QVERIFY(limited.contains("retry-after: 60\r\n") || limited.contains("retry-after: 59\r\n"));
        QVERIFY(limited.contains("\"RATE_LIMITED\""));
        QVERIFY(lookup("A", "127.0.0.2").startsWith("HTTP/1.1 200 "));

        setup = fixedSetup();
        setup.ratePerMinute = 1;
        setup.refreshPerMinute = 2;
        setup.tokens = std::make_unique<TokenRegistry>(std::set<QString>{u"dev-1"_qs, u"dev-2"_qs},
                                                       std::set<QString>{u"ref-1"_qs});
        RunningServer guarded(std::move(setup));
        auto client = guarded.client();
        QCOMPARE(lookupStatus(*client, "dev-1"), 200);
        QCOMPARE(lookupStatus(*client, "dev-1"), 429);
        QCOMPARE(lookupStatus(*client, "dev-2"), 200);
        for (const int status : {401, 401, 429})
            QCOMPARE(refresh(*client, R"({"refresh_token":"nope","device_id":"d"})")->status, status);
    }

    void rateWindowSlidesAndTheTableStaysBounded() {
        auto now = std::chrono::steady_clock::time_point{} + std::chrono::hours(1);
        RateLimiter limiter(3, 100, [&] { return now; });
        QCOMPARE(limiter.admit("d"), std::nullopt);
        now += std::chrono::seconds(20);
        QCOMPARE(limiter.admit("d"), std::nullopt);
        QCOMPARE(limiter.admit("d"), std::nullopt);
        QCOMPARE(limiter.admit("d"), std::optional<int>(40));
        now += std::chrono::milliseconds(39500);
        QCOMPARE(limiter.admit("d"), std::optional<int>(1));
        now += std::chrono::milliseconds(500);
        QCOMPARE(limiter.admit("d"), std::nullopt); // the first lookup left the window
        QCOMPARE(limiter.admit("d"), std::optional<int>(20));

        // A flood of new keys pushes out the least recently seen, never beyond the bound.
        for (int i = 0; i < 1000; ++i)
            for (int n = 0; n < 4; ++n)
                limiter.admit("flood-" + std::to_string(i));
        QCOMPARE(limiter.size(), std::size_t(100));
        QVERIFY(limiter.admit("flood-999"));        // still remembered, still limited
        QCOMPARE(limiter.admit("d"), std::nullopt); // forgotten
        // Keys quiet for a whole window go at the next request.
        now += std::chrono::seconds(60);
        QCOMPARE(limiter.admit("e"), std::nullopt);
        QCOMPARE(limiter.size(), std::size_t(1));

        RateLimiter unlimited(0);
        for (int i = 0; i < 100; ++i)
            QCOMPARE(unlimited.admit("d"), std::nullopt);
    }

    // Clients that trickle their headers, more of them than threads and reconnecting as soon as they
    // are cut, delay an ordinary request by no more than the deadline.
    void slowClientsDelayOthersByTheDeadlineAtMost() {
        constexpr auto deadline = std::chrono::milliseconds(1000);
        ServerSetup setup = fixedSetup();
        setup.limits.threads = 2;
        setup.limits.requestDeadline = deadline;
        RunningServer server(std::move(setup));
        SlowClients slow(server.port(), loopbackAddresses(8), std::chrono::milliseconds(100));
        QVERIFY(slow.waitUntilConnected());
        for (int i = 0; i < 3; ++i) {
            const auto sent = std::chrono::steady_clock::now();
            const QByteArray answer = QByteArray::fromStdString(exchange(
                server.port(), "GET /v1/updates/latest HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n"));
            const auto waited = std::chrono::steady_clock::now() - sent;
            QVERIFY2(answer.startsWith("HTTP/1.1 200 "), answer.constData());
            QVERIFY2(waited < deadline + std::chrono::milliseconds(800),
                     qPrintable(u"%1 ms"_qs.arg(
                         std::chrono::duration_cast<std::chrono::milliseconds>(waited).count())));
        }
        QVERIFY(slow.cut() >= 2);
    }

    // Beyond the connections one address may hold, or the line of connections waiting for a thread,
    // a connection is answered at once, and told when to come back.
    void excessConnectionsAreRefusedAtOnce_data() {
        QTest::addColumn<int>("threads");
        QTest::addColumn<int>("queue");
        QTest::addColumn<int>("perPeer");
        QTest::addColumn<bool>("sameAddress"); // the slow clients share the refused one's address
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("code");
        QTest::newRow("per address") << 4 << 8 << 2 << true << 429 << QByteArray("TOO_MANY_CONNECTIONS");
        QTest::newRow("queue full") << 2 << 1 << 8 << false << 503 << QByteArray("BUSY");
    }
    void excessConnectionsAreRefusedAtOnce() {
        QFETCH(int, threads);
        QFETCH(int, queue);
        QFETCH(int, perPeer);
        QFETCH(bool, sameAddress);
        QFETCH(int, status);
        QFETCH(QByteArray, code);
        ServerSetup setup = fixedSetup();
        setup.limits = {threads, queue, perPeer, std::chrono::seconds(20)};
        RunningServer server(std::move(setup));
        const std::string request = "GET /v1/updates/latest HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n";
        {
            SlowClients slow(server.port(),
                             sameAddress ? std::vector<std::string>(std::size_t(perPeer), "127.0.0.1")
                                         : loopbackAddresses(threads + queue),
                             std::chrono::milliseconds(200));
            QVERIFY(slow.waitUntilConnected());
            const auto sent = std::chrono::steady_clock::now();
            const QByteArray answer = QByteArray::fromStdString(exchange(server.port(), request));
            QVERIFY(std::chrono::steady_clock::now() - sent < std::chrono::seconds(5));
            QVERIFY2(answer.startsWith(QByteArray("HTTP/1.1 " + QByteArray::number(status) + ' ')),
                     answer.constData());
            QVERIFY(answer.contains("retry-after: 20\r\n"));
            QVERIFY(answer.contains(QByteArray("{\"code\":\"" + code + "\",\"message\":\"")));
            QCOMPARE(slow.cut(), 0);
            if (sameAddress)
                QVERIFY(exchange(server.port(), request, "127.0.0.2").starts_with("HTTP/1.1 200 "));
        }
        // Once the slow ones have gone, their places are free again.
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        std::string answer;
        do
            answer = exchange(server.port(), request);
        while (!answer.starts_with("HTTP/1.1 200 ") && std::chrono::steady_clock::now() < until);
        QVERIFY2(answer.starts_with("HTTP/1.1 200 "), answer.c_str());
    }
};

QTEST_APPLESS_MAIN(ServerTest)
#include "tst_server.moc"
