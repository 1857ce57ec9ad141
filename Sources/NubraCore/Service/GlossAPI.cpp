#include "NubraCore/Service/GlossAPI.h"

#include "NubraCore/Service/APIEnvelope.h"
#include "NubraCore/Service/GlossLookup.h"
#include "NubraCore/Service/RefreshData.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QPointer>

#include <algorithm>

namespace {

// A header value with a line break or another control character could smuggle in header fields of
// its own; such a value is never sent.
bool isSafeHeaderValue(const QByteArray& value) {
    return std::none_of(value.begin(), value.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7f;
    });
}

} // namespace

QNetworkAccessManager* nubraDirectSession() {
    static QPointer<QNetworkAccessManager> session;
    if (!session) {
        session = new QNetworkAccessManager(QCoreApplication::instance());
        session->setProxy(QNetworkProxy::NoProxy);
        session->setTransferTimeout(60'000);
    }
    return session;
}

GlossAPI::GlossAPI(QUrl baseURL, QNetworkAccessManager* session, Options options)
    : m_baseURL(std::move(baseURL)), m_session(session), m_options(std::move(options)) {}

GlossAPI::GlossAPI(QUrl baseURL, QNetworkAccessManager* session)
    : GlossAPI(std::move(baseURL), session, Options{}) {}

QUrl GlossAPI::makeBaseURL(bool dev) {
    return QUrl(QString::fromLatin1(dev ? developmentBaseURL : productionBaseURL));
}

QUrl GlossAPI::configuredBaseURL(bool dev) {
    const QUrl configured(qEnvironmentVariable("NUBRA_BASE_URL"), QUrl::StrictMode);
    const bool usable = configured.isValid() && !configured.host().isEmpty() &&
                        (configured.scheme() == u"https" || configured.scheme() == u"http");
    return usable ? configured : makeBaseURL(dev);
}

QString GlossAPI::baseURLDescription() const {
    return m_baseURL.toString(QUrl::FullyEncoded);
}

QUrl GlossAPI::endpoint(const QString& path) const {
    QUrl url = m_baseURL;
    QString base = url.path();
    while (base.endsWith(u'/'))
        base.chop(1);
    url.setPath(base + path);
    return url;
}

QNetworkRequest GlossAPI::baseRequest(const QString& path) const {
    QNetworkRequest request(endpoint(path));
    request.setTransferTimeout(int(m_options.timeout.count()));
    if (m_options.tls)
        request.setSslConfiguration(*m_options.tls);
    return request;
}

QNetworkRequest GlossAPI::buildGlossRequest(const std::optional<QString>& deviceToken,
                                            const QString& deviceId) const {
    QNetworkRequest request = baseRequest(QStringLiteral("/v1/gloss"));
    request.setRawHeader("content-type", "application/json");
    request.setRawHeader("user-agent", "Nubra/1.0 (macOS)");
    const QByteArray id = deviceId.toUtf8();
    request.setRawHeader("x-device-id", isSafeHeaderValue(id) ? id : QByteArray());
    const QByteArray token = deviceToken ? deviceToken->toUtf8() : QByteArray();
    if (!token.isEmpty() && isSafeHeaderValue(token))
        request.setRawHeader("authorization", "Bearer " + token);
    request.setRawHeader("accept", "text/event-stream");
    return request;
}

QByteArray GlossAPI::glossBody(const GlossRequest& request) {
    return QJsonDocument(request.toJson()).toJson(QJsonDocument::Compact);
}

std::unique_ptr<GlossLookup> GlossAPI::gloss(const GlossRequest& request,
                                             const std::optional<QString>& deviceToken,
                                             const QString& deviceId, TokenRenewal renewal) const {
    return std::unique_ptr<GlossLookup>(
        new GlossLookup(*this, glossBody(request), deviceToken, deviceId, std::move(renewal)));
}

QNetworkRequest GlossAPI::buildRefreshRequest() const {
    QNetworkRequest request = baseRequest(QStringLiteral("/v1/auth/refresh"));
    request.setRawHeader("content-type", "application/json");
    return request;
}

QByteArray GlossAPI::refreshBody(const QString& refreshToken, const QString& deviceId) {
    const QJsonObject body{{QStringLiteral("refresh_token"), refreshToken},
                           {QStringLiteral("device_id"), deviceId}};
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
}

void GlossAPI::refreshAccessToken(const QString& refreshToken, const QString& deviceId, QObject* context,
                                  std::function<void(ServiceCallResult<QString>)> done) const {
    QNetworkReply* reply = m_session->post(buildRefreshRequest(), refreshBody(refreshToken, deviceId));
    fetchWhole(reply, context, [done = std::move(done)](ServiceCallResult<QByteArray> body) {
        if (auto* error = std::get_if<ServiceCallError>(&body))
            return done(std::move(*error));
        // The value of "ok" is not looked at; only the shape of the answer matters.
        const auto decoded = APIEnvelope::decodePayload<RefreshData>(std::get<QByteArray>(body));
        if (!decoded)
            return done(ServiceCallError(decoded.error()));
        done(decoded.value().deviceToken);
    });
}

void GlossAPI::fetchLatestUpdate(QObject* context,
                                 std::function<void(ServiceCallResult<UpdateManifest>)> done) const {
    QNetworkReply* reply = m_session->get(baseRequest(QStringLiteral("/v1/updates/latest")));
    fetchWhole(reply, context, [done = std::move(done)](ServiceCallResult<QByteArray> body) {
        if (auto* error = std::get_if<ServiceCallError>(&body))
            return done(std::move(*error));
        const auto decoded = APIEnvelope::decodePayload<UpdateManifest>(std::get<QByteArray>(body));
        if (!decoded)
            return done(ServiceCallError(decoded.error()));
        done(decoded.value());
    });
}

void GlossAPI::fetchWhole(QNetworkReply* reply, QObject* context,
                          std::function<void(ServiceCallResult<QByteArray>)> done) const {
    // Owned by the context: destroying it aborts the transfer and drops the answer.
    reply->setParent(context);
    QObject::connect(reply, &QNetworkReply::downloadProgress, reply, [reply](qint64 received, qint64) {
        if (received > MaxWholeBodyBytes) {
            reply->setProperty("nubraTooLarge", true);
            reply->abort();
        }
    });
    QObject::connect(reply, &QNetworkReply::finished, context, [reply, done = std::move(done)] {
        reply->deleteLater();
        const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (reply->property("nubraTooLarge").toBool())
            return done(ServiceCallError(TransportError{QStringLiteral("response too large")}));
        if (status.isValid() && (status.toInt() < 200 || status.toInt() > 299))
            return done(ServiceCallError(GlossAPIError::invalidResponse(status.toInt())));
        if (reply->error() != QNetworkReply::NoError)
            return done(ServiceCallError(TransportError{reply->errorString()}));
        if (!status.isValid())
            return done(ServiceCallError(GlossAPIError::invalidResponse(-1)));
        done(reply->readAll());
    });
}
