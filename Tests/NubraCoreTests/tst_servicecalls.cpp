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

using Response = LocalHttpServer::Response;

namespace {

template <typename T> struct Answer {
    std::optional<ServiceCallResult<T>> result;
    const T* value() const { return result ? std::get_if<T>(&*result) : nullptr; }
    const ServiceCallError* error() const {
        return result ? std::get_if<ServiceCallError>(&*result) : nullptr;
    }
};

// JSON written with single quotes, to keep the tables readable.
QByteArray json(const char* text) {
    return QByteArray(text).replace('\'', '"');
}

const QByteArray doneBlock = "event: done\ndata: {\"gloss\":\"g\"}\n\n";

} // namespace

class ServiceCallsTest : public QObject {
    Q_OBJECT
private:
    LocalHttpServer m_server;
    Response m_refresh;
    Response m_update;
    std::vector<Response> m_gloss; // one per lookup request, in order
    QNetworkAccessManager m_session;
    QObject m_context;

    GlossAPI api() { return GlossAPI(m_server.url(), &m_session); }

    Answer<QString> refresh() {
        Answer<QString> answer;
        api().refreshAccessToken(u"R1"_qs, u"DEV"_qs, &m_context,
                                 [&answer](ServiceCallResult<QString> r) { answer.result = std::move(r); });
        [&] { QTRY_VERIFY_WITH_TIMEOUT(answer.result.has_value(), 5000); }();
        return answer;
    }

    Answer<UpdateManifest> latest(const GlossAPI& client) {
        Answer<UpdateManifest> answer;
        client.fetchLatestUpdate(
            &m_context, [&answer](ServiceCallResult<UpdateManifest> r) { answer.result = std::move(r); });
        [&] { QTRY_VERIFY_WITH_TIMEOUT(answer.result.has_value(), 5000); }();
        return answer;
    }

private slots:
    void initTestCase() {
        m_session.setProxy(QNetworkProxy::NoProxy);
        m_server.route("POST", "/v1/auth/refresh", [this](const auto&) { return m_refresh; });
        m_server.route("GET", "/v1/updates/latest", [this](const auto&) { return m_update; });
        m_server.route("POST", "/v1/gloss", [this](const auto&) {
            Response next = m_gloss.front();
            if (m_gloss.size() > 1)
                m_gloss.erase(m_gloss.begin());
            return next;
        });
        QVERIFY(m_server.start());
    }

    void refreshSendsOnlyTheTokenAndDevice() {
        m_refresh = Response::whole(200, json("{'ok':true,'data':{'device_token':'D2','expires_in':3600}}"));
        const auto answer = refresh();
        QVERIFY(answer.value());
        QCOMPARE(*answer.value(), u"D2"_qs);
        const auto request = m_server.requests().back();
        QCOMPARE(request.path, QByteArray("/v1/auth/refresh"));
        QCOMPARE(request.header("content-type"), QByteArray("application/json"));
        QVERIFY(!request.hasHeader("authorization"));
        QVERIFY(!request.hasHeader("x-device-id"));
        QVERIFY(!request.hasHeader("user-agent") || !request.header("user-agent").startsWith("Nubra"));
        const QJsonObject expected{{u"refresh_token"_qs, u"R1"_qs}, {u"device_id"_qs, u"DEV"_qs}};
        QCOMPARE(QJsonDocument::fromJson(request.body).object(), expected);
        QCOMPARE(api().buildRefreshRequest().rawHeaderList(), QList<QByteArray>{"content-type"});
    }

    void refreshAnswers() {
        struct Case {
            const char* name;
            Response response;
            ServiceCallResult<QString> expected;
        };
        const std::vector<Case> cases{
            {"no expires_in, ok false",
             Response::whole(200, json("{'ok':false,'data':{'device_token':'D3'}}")), u"D3"_qs},
            {"401", Response::whole(401, json("{'ok':true,'data':{'device_token':'D3'}}")),
             ServiceCallError(GlossAPIError::invalidResponse(401))},
            {"no ok", Response::whole(200, json("{'data':{'device_token':'D3'}}")),
             ServiceCallError(DecodingError::missingKey(u"ok"_qs))},
            {"no token", Response::whole(200, json("{'ok':true,'data':{}}")),
             ServiceCallError(DecodingError::missingKey(u"data.device_token"_qs))},
            {"token not a string", Response::whole(200, json("{'ok':true,'data':{'device_token':5}}")),
             ServiceCallError(DecodingError::typeMismatch(u"data.device_token"_qs, u"a string"_qs))},
            {"expires_in fractional",
             Response::whole(200, json("{'ok':true,'data':{'device_token':'D','expires_in':1.5}}")),
             ServiceCallError(DecodingError::typeMismatch(u"data.expires_in"_qs, u"an integer"_qs))},
        };
        for (const Case& c : cases) {
            m_refresh = c.response;
            const auto answer = refresh();
            QVERIFY2(answer.result == c.expected, c.name);
        }
    }

    void transportFailureIsPassedOn() {
        const GlossAPI nowhere(LocalHttpServer::closedPortUrl(), &m_session);
        Answer<UpdateManifest> answer = latest(nowhere);
        QVERIFY(answer.error());
        QVERIFY(std::holds_alternative<TransportError>(*answer.error()));
    }

    void oversizedWholeBodyIsCutOff() {
        m_update = Response::streamed({QByteArray(GlossAPI::MaxWholeBodyBytes, ' '), QByteArray(4096, ' ')},
                                      LocalHttpServer::Ending::holdOpen);
        const auto answer = latest(api());
        QVERIFY(answer.error());
        QCOMPARE(*answer.error(), ServiceCallError(TransportError{u"response too large"_qs}));
    }

    void latestUpdate() {
        m_update = Response::whole(200, json("{'ok':false,'data':{'available':true,'version':'v1.3','url':'"
                                             "https://x/a.zip','sha256':'ab'}}"));
        auto answer = latest(api());
        QVERIFY(answer.value());
        QCOMPARE(answer.value()->available, true);
        QCOMPARE(answer.value()->version, std::optional<QString>(u"v1.3"_qs));
        QCOMPARE(answer.value()->notes, std::nullopt);
        const auto request = m_server.requests().back();
        QCOMPARE(request.method, QByteArray("GET"));
        QVERIFY(!request.hasHeader("authorization"));
        QVERIFY(!request.hasHeader("x-device-id"));

        for (const int status : {304, 500}) {
            m_update = Response::whole(status, json("{'ok':true,'data':{'available':false}}"));
            answer = latest(api());
            QVERIFY(answer.error());
            QCOMPARE(*answer.error(), ServiceCallError(GlossAPIError::invalidResponse(status)));
        }
        m_update = Response::whole(200, json("{'ok':true,'data':{}}"));
        answer = latest(api());
        QVERIFY(answer.error());
        QCOMPARE(*answer.error(), ServiceCallError(DecodingError::missingKey(u"data.available"_qs)));
    }

    void lookupRenewsItsTokenOnce() {
        DebugLogCapture log;
        InMemorySecretStore secrets;
        InMemoryDefaults defaults;
        TokenStore tokens(secrets, defaults);
        tokens.save(u"refresh_token"_qs, u"R-secret"_qs);
        QString applied;
        TokenRenewal renewal(api(), tokens, [&applied](const QString& token) { applied = token; });

        m_refresh = Response::whole(200, json("{'ok':true,'data':{'device_token':'D-new'}}"));
        m_gloss = {Response::whole(401, "{}"), Response::streamed({doneBlock})};
        const auto before = m_server.requests().size();
        auto lookup = api().gloss(GlossRequest(u"x"_qs, {}, {}, {}, GlossStyle::plain, GlossLength::short_,
                                               u"auto"_qs, ModelTier::fast),
                                  u"D-old"_qs, u"DEV"_qs, renewal.hook());
        int finished = 0;
        connect(lookup.get(), &GlossLookup::finished, this, [&finished] { ++finished; });
        QTRY_COMPARE_WITH_TIMEOUT(finished, 1, 5000);

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
        m_gloss = {Response::whole(401, "{}")};
        applied.clear();
        lookup = api().gloss(GlossRequest(u"x"_qs, {}, {}, {}, GlossStyle::plain, GlossLength::short_,
                                          u"auto"_qs, ModelTier::fast),
                             u"D-new"_qs, u"DEV"_qs, renewal.hook());
        std::optional<GlossAPIError> failure;
        connect(lookup.get(), &GlossLookup::failed, this,
                [&failure](const GlossAPIError& e) { failure = e; });
        QTRY_VERIFY_WITH_TIMEOUT(failure.has_value(), 5000);
        QCOMPARE(*failure, GlossAPIError::invalidResponse(401));
        QVERIFY(applied.isEmpty());
        QCOMPARE(tokens.load(u"device_token"_qs), std::optional<QString>(u"D-new"_qs));

        // A refusal of the renewed token is final: one renewal per lookup.
        m_refresh = Response::whole(200, json("{'ok':true,'data':{'device_token':'D-newer'}}"));
        m_gloss = {Response::whole(401, "{}"), Response::whole(401, "{}")};
        const auto beforeSecond = m_server.requests().size();
        lookup = api().gloss(GlossRequest(u"x"_qs, {}, {}, {}, GlossStyle::plain, GlossLength::short_,
                                          u"auto"_qs, ModelTier::fast),
                             u"D-new"_qs, u"DEV"_qs, renewal.hook());
        failure.reset();
        connect(lookup.get(), &GlossLookup::failed, this,
                [&failure](const GlossAPIError& e) { failure = e; });
        QTRY_VERIFY_WITH_TIMEOUT(failure.has_value(), 5000);
        QCOMPARE(*failure, GlossAPIError::invalidResponse(401));
        QCOMPARE(m_server.requests().size(), beforeSecond + 3);

        for (const QByteArray secret : {"R-secret", "D-new", "D-old", "D-newer"})
            QVERIFY2(!log.raw().contains(secret), secret.constData());
    }

    void renewalWithoutRefreshTokenAnswersNothing() {
        InMemorySecretStore secrets;
        InMemoryDefaults defaults;
        TokenStore tokens(secrets, defaults);
        TokenRenewal renewal(api(), tokens, {});
        const auto before = m_server.requests().size();
        std::optional<std::optional<QString>> answer;
        renewal.run(&m_context, [&answer](std::optional<QString> token) { answer = token; });
        QVERIFY(answer.has_value());
        QCOMPARE(*answer, std::nullopt);
        QCOMPARE(m_server.requests().size(), before);
    }

    void lookupOverHttpsTrustsOnlyWhatItIsTold() {
        SelfSignedCertificate certificate;
        QVERIFY(certificate.isValid());
        LocalHttpServer tlsServer(certificate);
        tlsServer.route("POST", "/v1/gloss", [](const auto&) { return Response::streamed({doneBlock}); });
        QVERIFY(tlsServer.start());
        QCOMPARE(tlsServer.url().scheme(), u"https"_qs);

        const GlossRequest request(u"x"_qs, {}, {}, {}, GlossStyle::plain, GlossLength::short_, u"auto"_qs,
                                   ModelTier::fast);
        GlossAPI::Options trusting;
        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        tls.setCaCertificates({certificate.certificate()});
        trusting.tls = tls;
        auto lookup = GlossAPI(tlsServer.url(), &m_session, trusting).gloss(request, u"t"_qs, u"D"_qs);
        std::vector<SSEEvent> events;
        int finished = 0;
        connect(lookup.get(), &GlossLookup::event, this,
                [&events](const SSEEvent& e) { events.push_back(e); });
        connect(lookup.get(), &GlossLookup::finished, this, [&finished] { ++finished; });
        QTRY_COMPARE_WITH_TIMEOUT(finished, 1, 5000);
        QCOMPARE(events.size(), 1u);
        QVERIFY(events[0].isDone());

        // The system's trust store alone does not know the test's certificate. A session of its own, so
        // that the trusted connection above is not reused.
        QNetworkAccessManager fresh;
        fresh.setProxy(QNetworkProxy::NoProxy);
        lookup = GlossAPI(tlsServer.url(), &fresh).gloss(request, u"t"_qs, u"D"_qs);
        std::optional<GlossAPIError> failure;
        finished = 0;
        connect(lookup.get(), &GlossLookup::failed, this,
                [&failure](const GlossAPIError& e) { failure = e; });
        connect(lookup.get(), &GlossLookup::finished, this, [&finished] { ++finished; });
        QTRY_VERIFY_WITH_TIMEOUT(failure.has_value() || finished > 0, 5000);
        QVERIFY(failure.has_value());
        QCOMPARE(failure->kind, GlossAPIError::Kind::network);
        lookup.reset();
    }
};

QTEST_GUILESS_MAIN(ServiceCallsTest)
#include "tst_servicecalls.moc"
