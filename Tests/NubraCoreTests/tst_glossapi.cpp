#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Service/GlossLookup.h"
#include "TestSupport/LocalHttpServer.h"
#include "TestSupport/SelfSignedCertificate.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QTest>

using namespace std::chrono_literals;
using Response = LocalHttpServer::Response;
using Ending = LocalHttpServer::Ending;

namespace {

const QByteArray metaBlock =
    "event: meta\ndata: {\"model\":\"m\",\"estimated_cost\":1,\"credits_remaining\":9}\n\n";
const QByteArray deltaBlock1 = "event: delta\ndata: {\"text\":\"Hel\"}\n\n";
const QByteArray deltaBlock2 = "event: delta\ndata: {\"text\":\"lo\"}\n\n";
const QByteArray doneBlock =
    "event: done\ndata: {\"gloss\":\"Hello\",\"contextual_meaning\":\"c\",\"credits_cost\":1,"
    "\"credits_remaining\":8,\"cached\":false}\n\n";

SSEEvent delta(const QString& text) {
    return SSEEvent{SSEEvent::Delta{QStringLiteral("gloss"), text}};
}

std::vector<SSEEvent> fullStory() {
    return {SSEEvent{SSEEvent::Meta{u"m"_qs, 1, 9}}, delta(u"Hel"_qs), delta(u"lo"_qs),
            SSEEvent{SSEEvent::Done{GlossResult{u"Hello"_qs, u"c"_qs, std::nullopt, 1, 8, false}}}};
}

GlossRequest sampleRequest(std::optional<QString> sourceApp = std::nullopt) {
    return GlossRequest(u"serendipity"_qs, u"pure "_qs, u" struck"_qs, std::move(sourceApp),
                        GlossStyle::languageLearning, GlossLength::short_, u"auto"_qs, ModelTier::quality,
                        u"REQ-1"_qs);
}

// Everything one lookup reported, in order.
struct Outcome {
    std::vector<SSEEvent> events;
    int finishedCount = 0;
    std::vector<GlossAPIError> failures;
    bool ended() const { return finishedCount + int(failures.size()) > 0; }
};

void record(GlossLookup* lookup, Outcome& outcome) {
    QObject::connect(lookup, &GlossLookup::event, lookup,
                     [&outcome](const SSEEvent& e) { outcome.events.push_back(e); });
    QObject::connect(lookup, &GlossLookup::finished, lookup, [&outcome] { ++outcome.finishedCount; });
    QObject::connect(lookup, &GlossLookup::failed, lookup,
                     [&outcome](const GlossAPIError& error) { outcome.failures.push_back(error); });
}

} // namespace

class GlossAPITest : public QObject {
    Q_OBJECT
private:
    LocalHttpServer m_server;
    Response m_next; // what POST /v1/gloss answers
    QNetworkAccessManager m_session;

    GlossAPI api(GlossAPI::Options options = {}) const {
        return GlossAPI(m_server.url(), const_cast<QNetworkAccessManager*>(&m_session), std::move(options));
    }

    // Runs one lookup to its end (or fails the test after five seconds).
    Outcome run(const GlossAPI& client, const std::optional<QString>& token = u"tok"_qs) {
        Outcome outcome;
        auto lookup = client.gloss(sampleRequest(), token, u"DEVICE-1"_qs, {});
        record(lookup.get(), outcome);
        [&] { QTRY_VERIFY_WITH_TIMEOUT(outcome.ended(), 5000); }();
        QTest::qWait(30); // anything reported after the end would show up here
        return outcome;
    }

    Outcome run() { return run(api()); }

private slots:
    void initTestCase() {
        m_session.setProxy(QNetworkProxy::NoProxy);
        m_server.route("POST", "/v1/gloss", [this](const LocalHttpServer::Request&) { return m_next; });
        QVERIFY(m_server.start());
    }

    void requestCarriesHeadersInOrderAndTheBody() {
        m_next = Response::streamed({doneBlock});
        run();
        const auto request = m_server.requests().back();
        QCOMPARE(request.method, QByteArray("POST"));
        QCOMPARE(request.path, QByteArray("/v1/gloss"));
        QCOMPARE(request.header("content-type"), QByteArray("application/json"));
        QCOMPARE(request.header("user-agent"), QByteArray("Nubra/1.0 (macOS)"));
        QCOMPARE(request.header("x-device-id"), QByteArray("DEVICE-1"));
        QCOMPARE(request.header("authorization"), QByteArray("Bearer tok"));
        QCOMPARE(request.header("accept"), QByteArray("text/event-stream"));
        const QJsonObject body = QJsonDocument::fromJson(request.body).object();
        const QJsonObject expected{{u"selected_text"_qs, u"serendipity"_qs},
                                   {u"context_before"_qs, u"pure "_qs},
                                   {u"context_after"_qs, u" struck"_qs},
                                   {u"style"_qs, u"language_learning"_qs},
                                   {u"length"_qs, u"short"_qs},
                                   {u"lang"_qs, u"auto"_qs},
                                   {u"model_tier"_qs, u"quality"_qs},
                                   {u"request_id"_qs, u"REQ-1"_qs}};
        QCOMPARE(body, expected);

        const QList<QByteArray> order{"content-type", "user-agent", "x-device-id", "authorization", "accept"};
        QCOMPARE(api().buildGlossRequest(u"tok"_qs, u"D"_qs).rawHeaderList(), order);
        QCOMPARE(api().buildGlossRequest(u"tok"_qs, u"D"_qs).transferTimeout(), 60000);
        QCOMPARE(QJsonDocument::fromJson(GlossAPI::glossBody(sampleRequest(u"Mail"_qs)))
                     .object()
                     .value(u"source_app"),
                 QJsonValue(u"Mail"_qs));
    }

    void authorizationOnlyForAUsableToken() {
        QVERIFY(!api().buildGlossRequest(std::nullopt, u"D"_qs).hasRawHeader("authorization"));
        QVERIFY(!api().buildGlossRequest(QString(), u"D"_qs).hasRawHeader("authorization"));
        // A token with a line break would add header fields of its own.
        QVERIFY(!api().buildGlossRequest(u"a\r\nx-evil: 1"_qs, u"D"_qs).hasRawHeader("authorization"));
        m_next = Response::streamed({doneBlock});
        run(api(), std::nullopt);
        QVERIFY(!m_server.requests().back().hasHeader("authorization"));
    }

    void endpointsKeepTheBasePath() {
        const GlossAPI prefixed(QUrl(u"https://example.test/api/"_qs), nullptr);
        QCOMPARE(prefixed.endpoint(u"/v1/gloss"_qs), QUrl(u"https://example.test/api/v1/gloss"_qs));
        QCOMPARE(GlossAPI::makeBaseURL(true), QUrl(u"http://127.0.0.1:8790"_qs));
        QCOMPARE(GlossAPI::makeBaseURL(false).scheme(), u"https"_qs);
        QVERIFY(GlossAPI::makeBaseURL(false).path().isEmpty());
        QCOMPARE(prefixed.baseURLDescription(), u"https://example.test/api/"_qs);
        qputenv("NUBRA_BASE_URL", "http://10.0.0.2:9000");
        QCOMPARE(GlossAPI::configuredBaseURL(false), QUrl(u"http://10.0.0.2:9000"_qs));
        qputenv("NUBRA_BASE_URL", "ftp://x");
        QCOMPARE(GlossAPI::configuredBaseURL(true), GlossAPI::makeBaseURL(true));
        qunsetenv("NUBRA_BASE_URL");
        QCOMPARE(GlossAPI::configuredBaseURL(false), GlossAPI::makeBaseURL(false));
    }

    void directSessionHasNoProxyAndTheTimeout() {
        QNetworkAccessManager* session = nubraDirectSession();
        QCOMPARE(session, nubraDirectSession());
        QCOMPARE(session->proxy().type(), QNetworkProxy::NoProxy);
        QCOMPARE(session->transferTimeout(), 60000);
    }

    void deliversEventsWhateverTheArrivalSplit() {
        const QByteArray body = metaBlock + deltaBlock1 + deltaBlock2 + doneBlock;
        for (qsizetype cut = 1; cut < body.size(); cut += 7) {
            m_next = Response::streamed({body.left(cut), body.mid(cut)});
            m_next.pieces[1].delay = 2ms;
            const Outcome outcome = run();
            QVERIFY2(outcome.events == fullStory(), qPrintable(u"cut at %1"_qs.arg(cut)));
            QCOMPARE(outcome.finishedCount, 1);
            QVERIFY(outcome.failures.empty());
        }
    }

    void toleratesCarriageReturnsAndInvalidUtf8() {
        QByteArray body = metaBlock +
                          "event: delta\ndata: {\"text\":\"a\xff\xfe"
                          "b\"}\n\n" +
                          doneBlock;
        body.replace("\n", "\r\n");
        m_next = Response::streamed({body});
        const Outcome outcome = run();
        QCOMPARE(outcome.events.size(), 3u);
        QCOMPARE(outcome.events[1],
                 delta(u"a"_qs + QChar::ReplacementCharacter + QChar::ReplacementCharacter + u"b"_qs));
        QCOMPARE(outcome.finishedCount, 1);
    }

    void eventsArriveBeforeTheBodyEnds() {
        m_next = Response::streamed({metaBlock + deltaBlock1, doneBlock});
        m_next.pieces[1].delay = 1500ms;
        Outcome outcome;
        auto lookup = api().gloss(sampleRequest(), u"tok"_qs, u"D"_qs);
        record(lookup.get(), outcome);
        QTRY_COMPARE_WITH_TIMEOUT(outcome.events.size(), 2u, 1000);
        QVERIFY(!outcome.ended());
        QTRY_VERIFY_WITH_TIMEOUT(outcome.ended(), 3000);
        QCOMPARE(outcome.finishedCount, 1);
    }

    void endsAtDoneWhileTheServerKeepsTheConnectionOpen() {
        const int abandonedBefore = m_server.abandonedResponses();
        m_next = Response::streamed({metaBlock + deltaBlock1 + deltaBlock2 + doneBlock + deltaBlock1},
                                    Ending::holdOpen);
        const Outcome outcome = run();
        QVERIFY(outcome.events == fullStory());
        QCOMPARE(outcome.finishedCount, 1);
        // The transfer was stopped, not left running.
        QTRY_COMPARE_WITH_TIMEOUT(m_server.abandonedResponses(), abandonedBefore + 1, 3000);
    }

    void errorEventDeliveredThenFails() {
        m_next = Response::streamed(
            {deltaBlock1 + "event: error\ndata: {\"code\":\"QUOTA\",\"message\":\"Out of credits\"}\n\n" +
             deltaBlock2},
            Ending::holdOpen);
        const Outcome outcome = run();
        QCOMPARE(outcome.events.size(), 2u);
        QCOMPARE(outcome.events[1], (SSEEvent{SSEEvent::Error{u"QUOTA"_qs, u"Out of credits"_qs}}));
        QCOMPARE(outcome.finishedCount, 0);
        QCOMPARE(outcome.failures, std::vector{GlossAPIError::upstream(u"QUOTA"_qs, u"Out of credits"_qs)});
        QCOMPARE(outcome.failures[0].errorDescription(), u"Out of credits"_qs);
    }

    void bodyEndingWithoutDoneFinishesNormally() {
        // The last block lacks its blank line, and an error event on this final path is only delivered.
        m_next = Response::streamed({deltaBlock1 + deltaBlock2 + "event: error\ndata: {\"code\":\"X\"}"});
        Outcome outcome = run();
        QCOMPARE(outcome.events.size(), 3u);
        QCOMPARE(outcome.events[2], (SSEEvent{SSEEvent::Error{u"X"_qs, QString()}}));
        QCOMPARE(outcome.finishedCount, 1);
        QVERIFY(outcome.failures.empty());

        m_next = Response::streamed({deltaBlock1 + deltaBlock2 + "event: delta\ndata: {\"te"});
        outcome = run();
        QVERIFY((outcome.events == std::vector{delta(u"Hel"_qs), delta(u"lo"_qs)}));
        QCOMPARE(outcome.finishedCount, 1);

        // A final "\r" is still an (empty) line: it closes the block, and the error ends the lookup.
        m_next = Response::streamed({deltaBlock1 + "event: error\ndata: {\"code\":\"X\"}\n\r"});
        outcome = run();
        QCOMPARE(outcome.finishedCount, 0);
        QCOMPARE(outcome.failures, std::vector{GlossAPIError::upstream(u"X"_qs, QString())});
    }

    void droppedConnectionKeepsTheCompleteEvents() {
        // Qt reports a connection closed inside a chunked body either as the end of the body or as a
        // read error, depending on timing; either way the complete block arrives and the lookup ends once.
        m_next = Response::streamed({deltaBlock1, "event: delta\ndata: {\"te"}, Ending::drop);
        const Outcome outcome = run();
        QVERIFY((outcome.events == std::vector{delta(u"Hel"_qs)}));
        QCOMPARE(outcome.finishedCount + int(outcome.failures.size()), 1);
        if (!outcome.failures.empty())
            QCOMPARE(outcome.failures[0].kind, GlossAPIError::Kind::network);
    }

    void statusMapping_data() {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("retryAfter");
        QTest::addColumn<GlossAPIError>("expected");
        QTest::newRow("401") << 401 << QByteArray() << GlossAPIError::invalidResponse(401);
        QTest::newRow("500") << 500 << QByteArray() << GlossAPIError::invalidResponse(500);
        QTest::newRow("304") << 304 << QByteArray() << GlossAPIError::invalidResponse(304);
        QTest::newRow("429 with 7") << 429 << QByteArray("7") << GlossAPIError::rateLimited(7);
        QTest::newRow("429 without") << 429 << QByteArray() << GlossAPIError::rateLimited(60);
        QTest::newRow("429 not decimal") << 429 << QByteArray("7s") << GlossAPIError::rateLimited(60);
        QTest::newRow("429 date") << 429 << QByteArray("Wed, 21 Oct 2015 07:28:00 GMT")
                                  << GlossAPIError::rateLimited(60);
    }

    void statusMapping() {
        QFETCH(int, status);
        QFETCH(QByteArray, retryAfter);
        QFETCH(GlossAPIError, expected);
        m_next = Response::whole(status, doneBlock, "text/event-stream");
        if (!retryAfter.isEmpty())
            m_next.headers.append({"Retry-After", retryAfter});
        const Outcome outcome = run();
        QVERIFY(outcome.events.empty()); // the body is not read
        QCOMPARE(outcome.finishedCount, 0);
        QCOMPARE(outcome.failures, std::vector{expected});
    }

    void errorDescriptionsFollowTheLanguage() {
        const auto describe = [](const GlossAPIError& error, const char* language) {
            L10n::setOverride(QString::fromLatin1(language));
            const QString text = error.errorDescription();
            L10n::setOverride(std::nullopt);
            return text;
        };
        QCOMPARE(describe(GlossAPIError::invalidResponse(500), "en"), u"Server returned 500"_qs);
        QCOMPARE(describe(GlossAPIError::invalidResponse(500), "zh"), u"服务端返回 500"_qs);
        QCOMPARE(describe(GlossAPIError::rateLimited(7), "en"), u"Too fast — try again in 7 seconds."_qs);
        QCOMPARE(describe(GlossAPIError::rateLimited(7), "zh"), u"请求过于频繁，请 7 秒后再试"_qs);
        QCOMPARE(describe(GlossAPIError::upstream(u"C"_qs, u"msg"_qs), "zh"), u"msg"_qs);
        QCOMPARE(describe(GlossAPIError::network(u"boom"_qs), "en"), u"Network error: boom"_qs);
        QCOMPARE(describe(GlossAPIError::network(u"boom"_qs), "zh"), u"网络错误：boom"_qs);
        QVERIFY(GlossAPIError::rateLimited(7) != GlossAPIError::invalidResponse(7));
    }

    void stalledServerTimesOut() {
        m_next = Response::streamed({deltaBlock1, doneBlock});
        m_next.pieces[1].delay = 3000ms;
        GlossAPI::Options options;
        options.timeout = 300ms;
        QElapsedTimer clock;
        clock.start();
        const Outcome outcome = run(api(options));
        QVERIFY(clock.elapsed() < 2500);
        QVERIFY((outcome.events == std::vector{delta(u"Hel"_qs)}));
        QCOMPARE(outcome.failures, std::vector{GlossAPIError::network(u"The request timed out."_qs)});
    }

    void cancellingStopsTheTransfer() {
        const int abandonedBefore = m_server.abandonedResponses();
        m_next = Response::streamed({deltaBlock1}, Ending::holdOpen);
        Outcome outcome;
        auto lookup = api().gloss(sampleRequest(), u"tok"_qs, u"D"_qs);
        record(lookup.get(), outcome);
        QTRY_COMPARE_WITH_TIMEOUT(outcome.events.size(), 1u, 3000);
        lookup->cancel();
        QCOMPARE(outcome.failures, std::vector{GlossAPIError::network(u"cancelled"_qs)});
        lookup->cancel();
        QCOMPARE(outcome.failures.size(), 1u);
        QTRY_COMPARE_WITH_TIMEOUT(m_server.abandonedResponses(), abandonedBefore + 1, 3000);

        // Destroying a running lookup stops it too, silently.
        Outcome silent;
        lookup = api().gloss(sampleRequest(), u"tok"_qs, u"D"_qs);
        record(lookup.get(), silent);
        QTRY_COMPARE_WITH_TIMEOUT(silent.events.size(), 1u, 3000);
        lookup.reset();
        QTRY_COMPARE_WITH_TIMEOUT(m_server.abandonedResponses(), abandonedBefore + 2, 3000);
        QVERIFY(!silent.ended());
    }

    void consumerMayDeleteTheLookupFromItsSlot() {
        m_next = Response::streamed({metaBlock + deltaBlock1 + doneBlock});
        auto lookup = api().gloss(sampleRequest(), u"tok"_qs, u"D"_qs);
        int seen = 0;
        connect(lookup.get(), &GlossLookup::event, this, [&](const SSEEvent&) {
            ++seen;
            lookup.reset();
        });
        QTRY_VERIFY_WITH_TIMEOUT(!lookup, 3000);
        QTest::qWait(50);
        QCOMPARE(seen, 1);
    }

    void oversizedEventEndsWithNetworkError() {
        m_next = Response::streamed({"data: " + QByteArray(1 << 20, 'x'), QByteArray(1000, 'y')},
                                    Ending::holdOpen);
        const Outcome outcome = run();
        QVERIFY(outcome.events.empty());
        QCOMPARE(outcome.failures.size(), 1u);
        QCOMPARE(outcome.failures[0].kind, GlossAPIError::Kind::network);
        QVERIFY(outcome.failures[0].underlying.contains(u"too large"));
    }

    void unreachableServiceIsANetworkError() {
        const GlossAPI nowhere(LocalHttpServer::closedPortUrl(), &m_session);
        const Outcome outcome = run(nowhere);
        QCOMPARE(outcome.failures.size(), 1u);
        QCOMPARE(outcome.failures[0].kind, GlossAPIError::Kind::network);
        QVERIFY(!outcome.failures[0].underlying.isEmpty());
    }
};

QTEST_GUILESS_MAIN(GlossAPITest)
#include "tst_glossapi.moc"
