// The gloss service client against a scripted local server: streamed lookups, token renewal, and the
// whole-body calls (token refresh, release manifest).
#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Service/GlossLookup.h"
#include "NubraCore/Service/TokenRenewal.h"
#include "TestSupport/DebugLogCapture.h"
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

GlossRequest sampleRequest() {
    return GlossRequest(u"serendipity"_qs, u"pure "_qs, u" struck"_qs, u"Mail"_qs,
                        GlossStyle::languageLearning, GlossLength::short_, u"auto"_qs, ModelTier::quality,
                        u"REQ-1"_qs);
}

// JSON written with single quotes, to keep the tables readable.
QByteArray json(const char* text) {
    return QByteArray(text).replace('\'', '"');
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
    std::vector<Response> m_gloss; // answers to POST /v1/gloss in turn; the last one repeats
    Response m_refresh;
    Response m_update;
    QNetworkAccessManager m_session;
    QObject m_context;

    GlossAPI api(GlossAPI::Options options = {}) {
        return GlossAPI(m_server.url(), &m_session, std::move(options));
    }
    void answer(Response response) { m_gloss = {std::move(response)}; }

    // Runs one lookup to its end (or fails the test after five seconds).
    Outcome run(const GlossAPI& client, const std::optional<QString>& token = u"tok"_qs,
                GlossAPI::TokenRenewal renewal = {}) {
        Outcome outcome;
        auto lookup = client.gloss(sampleRequest(), token, u"DEVICE-1"_qs, std::move(renewal));
        record(lookup.get(), outcome);
        [&] { QTRY_VERIFY_WITH_TIMEOUT(outcome.ended(), 5000); }();
        QTest::qWait(30); // anything reported after the end would show up here
        return outcome;
    }
    Outcome run() { return run(api()); }

    template <typename T, typename Call> ServiceCallResult<T> await(Call call) {
        std::optional<ServiceCallResult<T>> result;
        call([&result](ServiceCallResult<T> r) { result = std::move(r); });
        [&] { QTRY_VERIFY_WITH_TIMEOUT(result.has_value(), 5000); }();
        return result.value_or(ServiceCallError(TransportError{u"no answer"_qs}));
    }
    ServiceCallResult<QString> refresh() {
        return await<QString>(
            [this](auto done) { api().refreshAccessToken(u"R1"_qs, u"DEV"_qs, &m_context, done); });
    }
    ServiceCallResult<UpdateManifest> latest(const GlossAPI& client) {
        return await<UpdateManifest>([&](auto done) { client.fetchLatestUpdate(&m_context, done); });
    }

private slots:
    void initTestCase() {
        m_session.setProxy(QNetworkProxy::NoProxy);
        m_server.route("POST", "/v1/gloss", [this](const auto&) {
            Response next = m_gloss.front();
            if (m_gloss.size() > 1)
                m_gloss.erase(m_gloss.begin());
            return next;
        });
        m_server.route("POST", "/v1/auth/refresh", [this](const auto&) { return m_refresh; });
        m_server.route("GET", "/v1/updates/latest", [this](const auto&) { return m_update; });
        QVERIFY(m_server.start());
    }

    void requestCarriesHeadersInOrderAndTheBody() {
        answer(Response::streamed({doneBlock}));
        run();
        const auto request = m_server.requests().back();
        QCOMPARE(request.path, QByteArray("/v1/gloss"));
        QCOMPARE(request.header("content-type"), QByteArray("application/json"));
        QCOMPARE(request.header("user-agent"), QByteArray("Nubra/1.0 (macOS)"));
        QCOMPARE(request.header("x-device-id"), QByteArray("DEVICE-1"));
        QCOMPARE(request.header("authorization"), QByteArray("Bearer tok"));
        QCOMPARE(request.header("accept"), QByteArray("text/event-stream"));
        QCOMPARE(QJsonDocument::fromJson(request.body).object(), sampleRequest().toJson());

        const QList<QByteArray> order{"content-type", "user-agent", "x-device-id", "authorization", "accept"};
        QCOMPARE(api().buildGlossRequest(u"tok"_qs, u"D"_qs).rawHeaderList(), order);
        QCOMPARE(api().buildGlossRequest(u"tok"_qs, u"D"_qs).transferTimeout(), 60000);

        QVERIFY(!api().buildGlossRequest(QString(), u"D"_qs).hasRawHeader("authorization"));
        // A token with a line break would add header fields of its own.
        QVERIFY(!api().buildGlossRequest(u"a\r\nx-evil: 1"_qs, u"D"_qs).hasRawHeader("authorization"));
        run(api(), std::nullopt);
        QVERIFY(!m_server.requests().back().hasHeader("authorization"));
    }

    void endpointsKeepTheBasePath() {
        const GlossAPI prefixed(QUrl(u"https://example.test/api/"_qs), nullptr);
        QCOMPARE(prefixed.endpoint(u"/v1/gloss"_qs), QUrl(u"https://example.test/api/v1/gloss"_qs));
        QCOMPARE(GlossAPI::makeBaseURL(true), QUrl(u"http://127.0.0.1:8790"_qs));
        qputenv("NUBRA_BASE_URL", "http://10.0.0.2:9000");
        QCOMPARE(GlossAPI::configuredBaseURL(false), QUrl(u"http://10.0.0.2:9000"_qs));
        qputenv("NUBRA_BASE_URL", "ftp://x");
        QCOMPARE(GlossAPI::configuredBaseURL(true), GlossAPI::makeBaseURL(true));
        qunsetenv("NUBRA_BASE_URL");

        QNetworkAccessManager* session = nubraDirectSession();
        QCOMPARE(session, nubraDirectSession());
        QCOMPARE(session->proxy().type(), QNetworkProxy::NoProxy);
        QCOMPARE(session->transferTimeout(), 60000);
    }

    void eventsArriveAsTheirBlocksEndWhateverTheSplit() {
        // The second piece starts inside a block and comes late: what came first is delivered at once.
        const QByteArray body = metaBlock + deltaBlock1 + deltaBlock2 + doneBlock;
        const qsizetype cut = metaBlock.size() + deltaBlock1.size() + 9;
        answer(Response::streamed({body.left(cut), body.mid(cut)}));
        m_gloss[0].pieces[1].delay = 1500ms;
        Outcome outcome;
        auto lookup = api().gloss(sampleRequest(), u"tok"_qs, u"D"_qs);
        record(lookup.get(), outcome);
        QTRY_COMPARE_WITH_TIMEOUT(outcome.events.size(), 2u, 1000);
        QVERIFY(!outcome.ended());
        QTRY_VERIFY_WITH_TIMEOUT(outcome.ended(), 3000);
        QVERIFY(outcome.events == fullStory());
        QCOMPARE(outcome.finishedCount, 1);
    }

    void endsAtDoneWhileTheServerKeepsTheConnectionOpen() {
        const int abandonedBefore = m_server.abandonedResponses();
        answer(Response::streamed({metaBlock + deltaBlock1 + deltaBlock2 + doneBlock + deltaBlock1},
                                  Ending::holdOpen));
        const Outcome outcome = run();
        QVERIFY(outcome.events == fullStory());
        QCOMPARE(outcome.finishedCount, 1);
        // The transfer was stopped, not left running.
        QTRY_COMPARE_WITH_TIMEOUT(m_server.abandonedResponses(), abandonedBefore + 1, 3000);
    }

    void errorEventDeliveredThenFails() {
        answer(Response::streamed(
            {deltaBlock1 + "event: error\ndata: {\"code\":\"QUOTA\",\"message\":\"Out of credits\"}\n\n" +
             deltaBlock2},
            Ending::holdOpen));
        const Outcome outcome = run();
        QCOMPARE(outcome.events.size(), 2u);
        QCOMPARE(outcome.events[1], (SSEEvent{SSEEvent::Error{u"QUOTA"_qs, u"Out of credits"_qs}}));
        QCOMPARE(outcome.finishedCount, 0);
        QCOMPARE(outcome.failures, std::vector{GlossAPIError::upstream(u"QUOTA"_qs, u"Out of credits"_qs)});
    }

    void bodyEndingWithoutDoneFinishesNormally() {
        // The last block lacks its blank line, and an error event on this final path is only delivered.
        answer(Response::streamed({deltaBlock1 + deltaBlock2 + "event: error\ndata: {\"code\":\"X\"}"}));
        Outcome outcome = run();
        QCOMPARE(outcome.events.size(), 3u);
        QCOMPARE(outcome.events[2], (SSEEvent{SSEEvent::Error{u"X"_qs, QString()}}));
        QCOMPARE(outcome.finishedCount, 1);
        QVERIFY(outcome.failures.empty());

        // A final "\r" is still an (empty) line: it closes the block, and the error ends the lookup.
        answer(Response::streamed({deltaBlock1 + "event: error\ndata: {\"code\":\"X\"}\n\r"}));
        outcome = run();
        QCOMPARE(outcome.finishedCount, 0);
        QCOMPARE(outcome.failures, std::vector{GlossAPIError::upstream(u"X"_qs, QString())});
    }

    void droppedConnectionKeepsTheCompleteEvents() {
        // Qt reports a connection closed inside a chunked body either as the end of the body or as a
        // read error, depending on timing; either way the complete block arrives and the lookup ends once.
        answer(Response::streamed({deltaBlock1, "event: delta\ndata: {\"te"}, Ending::drop));
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
        QTest::newRow("304") << 304 << QByteArray() << GlossAPIError::invalidResponse(304);
        QTest::newRow("429 with 7") << 429 << QByteArray("7") << GlossAPIError::rateLimited(7);
        QTest::newRow("429 without") << 429 << QByteArray() << GlossAPIError::rateLimited(60);
        QTest::newRow("429 date") << 429 << QByteArray("Wed, 21 Oct 2015 07:28:00 GMT")
                                  << GlossAPIError::rateLimited(60);
    }

    void statusMapping() {
        QFETCH(int, status);
        QFETCH(QByteArray, retryAfter);
        QFETCH(GlossAPIError, expected);
        answer(Response::whole(status, doneBlock, "text/event-stream"));
        if (!retryAfter.isEmpty())
            m_gloss[0].headers.append({"Retry-After", retryAfter});
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
        QCOMPARE(describe(GlossAPIError::rateLimited(7), "en"), u"Too fast — try again in 7 seconds."_qs);
        QCOMPARE(describe(GlossAPIError::upstream(u"C"_qs, u"msg"_qs), "zh"), u"msg"_qs);
        QCOMPARE(describe(GlossAPIError::network(u"boom"_qs), "zh"), u"网络错误：boom"_qs);
    }

    void stalledServerTimesOut() {
        answer(Response::streamed({deltaBlock1, doneBlock}));
        m_gloss[0].pieces[1].delay = 3000ms;
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
        answer(Response::streamed({deltaBlock1}, Ending::holdOpen));
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
        answer(Response::streamed({metaBlock + deltaBlock1 + doneBlock}));
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

    void oversizedEventAndUnreachableServiceAreNetworkErrors() {
        answer(Response::streamed({"data: " + QByteArray(1 << 20, 'x'), QByteArray(1000, 'y')},
                                  Ending::holdOpen));
        Outcome outcome = run();
        QVERIFY(outcome.events.empty());
        QCOMPARE(outcome.failures.size(), 1u);
        QCOMPARE(outcome.failures[0].kind, GlossAPIError::Kind::network);
        QVERIFY(outcome.failures[0].underlying.contains(u"too large"));

        outcome = run(GlossAPI(LocalHttpServer::closedPortUrl(), &m_session));
        QCOMPARE(outcome.failures.size(), 1u);
        QCOMPARE(outcome.failures[0].kind, GlossAPIError::Kind::network);
        QVERIFY(!outcome.failures[0].underlying.isEmpty());
    }

    void aRefusedTokenIsRenewedOncePerLookup() {
        DebugLogCapture log;
        InMemorySecretStore secrets;
        InMemoryDefaults defaults;
        TokenStore tokens(secrets, defaults);
        QString applied;
        TokenRenewal renewal(api(), tokens, [&applied](const QString& token) { applied = token; });
        const auto failures = [](const Outcome& o) { return o.failures; };
        const std::vector refused{GlossAPIError::invalidResponse(401)};

        // Without a refresh token nothing is asked for and the refusal stands.
        answer(Response::whole(401, "{}"));
        auto before = m_server.requests().size();
        QCOMPARE(failures(run(api(), u"D-old"_qs, renewal.hook())), refused);
        QCOMPARE(m_server.requests().size(), before + 1);

        tokens.save(u"refresh_token"_qs, u"R-secret"_qs);
        m_refresh = Response::whole(200, json("{'ok':true,'data':{'device_token':'D-new'}}"));
        m_gloss = {Response::whole(401, "{}"), Response::streamed({doneBlock})};
        before = m_server.requests().size();
        QCOMPARE(run(api(), u"D-old"_qs, renewal.hook()).finishedCount, 1);
        const auto requests = m_server.requests();
        QCOMPARE(requests.size(), before + 3);
        QCOMPARE(requests[before + 1].path, QByteArray("/v1/auth/refresh"));
        QCOMPARE(QJsonDocument::fromJson(requests[before + 1].body).object().value(u"refresh_token"),
                 QJsonValue(u"R-secret"_qs));
        QCOMPARE(requests[before + 2].header("authorization"), QByteArray("Bearer D-new"));
        QCOMPARE(requests[before + 2].body, requests[before].body);
        QCOMPARE(applied, u"D-new"_qs);
        QCOMPARE(tokens.load(u"device_token"_qs), std::optional<QString>(u"D-new"_qs));
        QCOMPARE(tokens.load(u"refresh_token"_qs), std::optional<QString>(u"R-secret"_qs));

        // A failed renewal stores nothing and the lookup ends with the refusal.
        m_refresh = Response::whole(500, "{}");
        answer(Response::whole(401, "{}"));
        applied.clear();
        QCOMPARE(failures(run(api(), u"D-new"_qs, renewal.hook())), refused);
        QVERIFY(applied.isEmpty());
        QCOMPARE(tokens.load(u"device_token"_qs), std::optional<QString>(u"D-new"_qs));

        // A refusal of the renewed token is final.
        m_refresh = Response::whole(200, json("{'ok':true,'data':{'device_token':'D-newer'}}"));
        before = m_server.requests().size();
        QCOMPARE(failures(run(api(), u"D-new"_qs, renewal.hook())), refused);
        QCOMPARE(m_server.requests().size(), before + 3);

        for (const QByteArray secret : {"R-secret", "D-new", "D-old", "D-newer"})
            QVERIFY2(!log.raw().contains(secret), secret.constData());
    }

    void refreshSendsOnlyTheTokenAndDevice() {
        m_refresh = Response::whole(200, json("{'ok':true,'data':{'device_token':'D2','expires_in':3600}}"));
        QCOMPARE(refresh(), ServiceCallResult<QString>(u"D2"_qs));
        const auto request = m_server.requests().back();
        QCOMPARE(request.header("content-type"), QByteArray("application/json"));
        QVERIFY(!request.hasHeader("authorization"));
        QVERIFY(!request.hasHeader("x-device-id"));
        QVERIFY(!request.header("user-agent").startsWith("Nubra"));
        const QJsonObject expected{{u"refresh_token"_qs, u"R1"_qs}, {u"device_id"_qs, u"DEV"_qs}};
        QCOMPARE(QJsonDocument::fromJson(request.body).object(), expected);
        QCOMPARE(api().buildRefreshRequest().rawHeaderList(), QList<QByteArray>{"content-type"});
    }

    void refreshAnswers_data() {
        QTest::addColumn<Response>("response");
        QTest::addColumn<ServiceCallResult<QString>>("expected");
        const auto whole = [](int status, const char* body) { return Response::whole(status, json(body)); };
        QTest::newRow("no expires_in, ok false") << whole(200, "{'ok':false,'data':{'device_token':'D3'}}")
                                                 << ServiceCallResult<QString>(u"D3"_qs);
        QTest::newRow("401") << whole(401, "{'ok':true,'data':{'device_token':'D3'}}")
                             << ServiceCallResult<QString>(GlossAPIError::invalidResponse(401));
        QTest::newRow("no token") << whole(200, "{'ok':true,'data':{}}")
                                  << ServiceCallResult<QString>(
                                         DecodingError::missingKey(u"data.device_token"_qs));
        QTest::newRow("expires_in fractional")
            << whole(200, "{'ok':true,'data':{'device_token':'D','expires_in':1.5}}")
            << ServiceCallResult<QString>(
                   DecodingError::typeMismatch(u"data.expires_in"_qs, u"an integer"_qs));
    }

    void refreshAnswers() {
        QFETCH(Response, response);
        QFETCH(ServiceCallResult<QString>, expected);
        m_refresh = response;
        QVERIFY(refresh() == expected);
    }

    void latestUpdate() {
        m_update = Response::whole(200, json("{'ok':false,'data':{'available':true,'version':'v1.3'}}"));
        auto answer = latest(api());
        QVERIFY(std::holds_alternative<UpdateManifest>(answer));
        QCOMPARE(std::get<UpdateManifest>(answer).version, std::optional<QString>(u"v1.3"_qs));
        const auto request = m_server.requests().back();
        QCOMPARE(request.method, QByteArray("GET"));
        QVERIFY(!request.hasHeader("authorization"));
        QVERIFY(!request.hasHeader("x-device-id"));

        m_update = Response::whole(304, json("{'ok':true,'data':{'available':false}}"));
        QVERIFY(latest(api()) == ServiceCallResult<UpdateManifest>(GlossAPIError::invalidResponse(304)));
        m_update = Response::whole(200, json("{'ok':true,'data':{}}"));
        QVERIFY(latest(api()) ==
                ServiceCallResult<UpdateManifest>(DecodingError::missingKey(u"data.available"_qs)));

        // An answer past the size limit is cut off; no answer at all is passed on as it is.
        m_update = Response::streamed({QByteArray(GlossAPI::MaxWholeBodyBytes, ' '), QByteArray(4096, ' ')},
                                      Ending::holdOpen);
        QVERIFY(latest(api()) == ServiceCallResult<UpdateManifest>(TransportError{u"response too large"_qs}));
        answer = latest(GlossAPI(LocalHttpServer::closedPortUrl(), &m_session));
        QVERIFY(std::holds_alternative<ServiceCallError>(answer));
        QVERIFY(std::holds_alternative<TransportError>(std::get<ServiceCallError>(answer)));
    }

    void lookupOverHttpsTrustsOnlyWhatItIsTold() {
        SelfSignedCertificate certificate;
        QVERIFY(certificate.isValid());
        LocalHttpServer tlsServer(certificate);
        tlsServer.route("POST", "/v1/gloss", [](const auto&) { return Response::streamed({doneBlock}); });
        QVERIFY(tlsServer.start());
        QCOMPARE(tlsServer.url().scheme(), u"https"_qs);

        GlossAPI::Options trusting;
        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        tls.setCaCertificates({certificate.certificate()});
        trusting.tls = tls;
        const Outcome trusted = run(GlossAPI(tlsServer.url(), &m_session, trusting));
        QCOMPARE(trusted.finishedCount, 1);
        QCOMPARE(trusted.events.size(), 1u);

        // The system's trust store alone does not know the test's certificate. A session of its own, so
        // that the trusted connection above is not reused.
        QNetworkAccessManager fresh;
        fresh.setProxy(QNetworkProxy::NoProxy);
        const Outcome untrusted = run(GlossAPI(tlsServer.url(), &fresh));
        QCOMPARE(untrusted.failures.size(), 1u);
        QCOMPARE(untrusted.failures[0].kind, GlossAPIError::Kind::network);
    }
};

QTEST_GUILESS_MAIN(GlossAPITest)
#include "tst_glossapi.moc"
