#pragma once

#include "NubraCore/Service/ServiceCallError.h"
#include "NubraCore/Update/UpdateManifest.h"
#include "NubraCore/Vocabulary/Models.h"

#include <QByteArray>
#include <QNetworkRequest>
#include <QSslConfiguration>
#include <QString>
#include <QUrl>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class GlossLookup;
class QNetworkAccessManager;
class QNetworkReply;
class QObject;

// The process-wide transport of every service request, made on first use on the main thread: no
// proxy (connections go straight to the service) and a 60 s transfer timeout. It lives as long as the
// application object.
QNetworkAccessManager* nubraDirectSession();

// The one client of the gloss service. Cheap to copy; it holds no state of its own beyond its
// configuration.
class GlossAPI {
public:
    struct Options {
        // How long a transfer may go without progress before it fails.
        std::chrono::milliseconds timeout{60'000};
        // Left empty in production: the system's trust store alone is used. Tests trust their own
        // certificate through it.
        std::optional<QSslConfiguration> tls;
    };

    // Asked when the service refuses a lookup's token (401): answers the renewed token, or nothing
    // when no renewal was possible. It must not answer after `context` is destroyed.
    using TokenRenewal =
        std::function<void(QObject* context, std::function<void(std::optional<QString> token)> answer)>;

    GlossAPI(QUrl baseURL, QNetworkAccessManager* session, Options options);
    GlossAPI(QUrl baseURL, QNetworkAccessManager* session);

    static constexpr const char* productionBaseURL = "https://api.nubra.app";
    static constexpr const char* developmentBaseURL = "http://127.0.0.1:8790";

    static QUrl makeBaseURL(bool dev);
    // NUBRA_BASE_URL when set to a usable http(s) address, otherwise makeBaseURL(dev).
    static QUrl configuredBaseURL(bool dev);

    QString baseURLDescription() const;
    const QUrl& baseURL() const { return m_baseURL; }
    QNetworkAccessManager* session() const { return m_session; }
    const Options& options() const { return m_options; }

    // Starts a lookup at once. Its events, then its one finish or failure, arrive through the event loop,
    // so connecting to the returned object right away misses nothing.
    std::unique_ptr<GlossLookup> gloss(const GlossRequest& request, const std::optional<QString>& deviceToken,
                                       const QString& deviceId, TokenRenewal renewal = {}) const;

    QNetworkRequest buildGlossRequest(const std::optional<QString>& deviceToken,
                                      const QString& deviceId) const;
    static QByteArray glossBody(const GlossRequest& request);

    // POST /v1/auth/refresh: one content-type field, no credential or device header.
    QNetworkRequest buildRefreshRequest() const;
    static QByteArray refreshBody(const QString& refreshToken, const QString& deviceId);

    // Renews the device token. `done` runs once on the session's thread, unless `context` is destroyed
    // first (which also aborts the transfer).
    void refreshAccessToken(const QString& refreshToken, const QString& deviceId, QObject* context,
                            std::function<void(ServiceCallResult<QString>)> done) const;

    // GET /v1/updates/latest, without any credential.
    void fetchLatestUpdate(QObject* context,
                           std::function<void(ServiceCallResult<UpdateManifest>)> done) const;

    // Whole-body answers are small; a peer that sends more than this is cut off.
    static constexpr qint64 MaxWholeBodyBytes = 1 << 20;

    // `path` begins with "/" and is appended to the base address's own path.
    QUrl endpoint(const QString& path) const;

private:
    QNetworkRequest baseRequest(const QString& path) const;
    // Sends, waits for the whole body and checks the status; `done` gets the body or the failure.
    void fetchWhole(QNetworkReply* reply, QObject* context,
                    std::function<void(ServiceCallResult<QByteArray>)> done) const;

    QUrl m_baseURL;
    QNetworkAccessManager* m_session;
    Options m_options;
};
