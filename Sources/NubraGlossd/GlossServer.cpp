#include "NubraGlossd/GlossServer.h"

#include "NubraGlossd/Envelope.h"
#include "NubraGlossd/RequestValidator.h"
#include "NubraGlossd/SSEWriter.h"

#include <QFile>
#include <QJsonDocument>
#include <QUrl>

#include <httplib.h>

namespace {

void fail(httplib::Response& res, int status, const char* code, const QString& message) {
    res.status = status;
    res.set_content(Envelope::failure(QLatin1String(code), message), "application/json");
}

void succeed(httplib::Response& res, const QJsonObject& data) {
    res.set_content(Envelope::success(data), "application/json");
}

// Answers 429 and returns true when `limiter` refuses `key` now.
bool refusedBy(RateLimiter& limiter, const std::string& key, httplib::Response& res) {
    const auto wait = limiter.admit(key);
    if (!wait)
        return false;
    res.set_header("retry-after", std::to_string(*wait));
    fail(res, 429, "RATE_LIMITED", QStringLiteral("Too many requests; try again in %1 seconds.").arg(*wait));
    return true;
}

std::string bearerToken(const httplib::Request& req) {
    const std::string value = req.get_header_value("authorization");
    constexpr std::string_view scheme = "Bearer ";
    return std::string_view(value).starts_with(scheme) ? value.substr(scheme.size()) : std::string();
}

// Writes one lookup's events to the open response.
class StreamSink : public EventSink {
public:
    StreamSink(httplib::DataSink& sink, const std::atomic<bool>& stopping)
        : m_sink(sink), m_stopping(stopping) {}

    bool write(const std::string& block) {
        return m_sink.is_writable() && m_sink.write(block.data(), block.size());
    }
    bool delta(const QString& field, const QString& text) override {
        return !m_stopping && write(SSEWriter::delta(field, text));
    }

private:
    httplib::DataSink& m_sink;
    const std::atomic<bool>& m_stopping;
};

// Where the client reached the releases folder: the Host it asked for, or the address the connection
// came in on when it named none (HTTP/1.0) or one that is not a plain host and port.
QUrl releasesBase(const httplib::Request& req) {
    QUrl base;
    base.setScheme(QStringLiteral("http"));
    base.setAuthority(QString::fromStdString(req.get_header_value("host")), QUrl::StrictMode);
    if (!base.isValid() || base.host().isEmpty() || !base.userInfo().isEmpty()) {
        base.setAuthority({});
        base.setHost(QString::fromStdString(req.local_addr));
        base.setPort(req.local_port);
    }
    base.setPath(QStringLiteral("/releases/"));
    return base;
}

// A manifest may name its archive by file name, relative to the folder it sits in; the client
// only accepts absolute addresses, so the name is resolved against the address it came to.
QJsonObject withAbsoluteUrl(QJsonObject manifest, const httplib::Request& req) {
    const QJsonValue url = manifest.value(u"url");
    if (!url.isString())
        return manifest;
    const QUrl reference(url.toString(), QUrl::StrictMode);
    if (reference.isValid() && reference.scheme().isEmpty() && reference.authority().isEmpty() &&
        !reference.path().isEmpty())
        manifest.insert(u"url", releasesBase(req).resolved(reference).toString(QUrl::FullyEncoded));
    return manifest;
}

} // namespace

GlossServer::GlossServer(ServerSetup setup)
    : m_setup(std::move(setup)), m_rateLimiter(m_setup.ratePerMinute),
      m_refreshLimiter(m_setup.refreshPerMinute), m_log(m_setup.accessLog),
      m_server(std::make_unique<GuardedServer>(m_setup.limits, [this](const std::string& peer, int status) {
          m_log.write(peer, "-", "-", status, {}, {});
      })) {
    m_server->set_payload_max_length(RequestValidator::MaxBodyBytes);
    m_server->set_keep_alive_max_count(1000);
    // Each event is a small write that must leave at once, not wait for the previous one's ACK.
    m_server->set_tcp_nodelay(true);
    installRoutes();
}

GlossServer::~GlossServer() = default;

std::optional<int> GlossServer::bind(const std::string& host, int port) {
    return m_server->bindTo(host, port);
}

void GlossServer::run() {
    m_server->listen_after_bind();
}

bool GlossServer::isRunning() const {
    return m_server->is_running();
}

void GlossServer::stop() {
    m_stopping = true;
    m_setup.backend->shutdown();
    m_server->stop();
}

void GlossServer::installRoutes() {
    m_server->set_pre_routing_handler([](const httplib::Request& req, httplib::Response& res) {
        // The library holds a body to the size limit only when its length is stated up front; a
        // chunked or compressed body could grow without bound, so it is refused before it is read.
        if (req.has_header("transfer-encoding") || req.has_header("content-encoding")) {
            fail(res, 400, "BAD_REQUEST",
                 QStringLiteral("Send the request body uncompressed, with a Content-Length."));
            return httplib::Server::HandlerResponse::Handled;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });
    m_server->set_logger([this](const httplib::Request& req, const httplib::Response& res) {
        const auto served = GuardedServer::servedRequest();
        const auto elapsed = served ? std::chrono::steady_clock::now() - served->began
                                    : std::chrono::steady_clock::duration::zero();
        m_log.write(served ? served->peer : req.remote_addr, req.method, req.path, res.status,
                    std::chrono::duration_cast<std::chrono::milliseconds>(elapsed),
                    req.get_header_value("x-device-id"));
    });
    // Errors the library raises itself (unknown path, oversized body) get the same JSON shape.
    m_server->set_error_handler(
        httplib::Server::HandlerWithResponse([this](const httplib::Request&, httplib::Response& res) {
            if (!res.body.empty())
                return httplib::Server::HandlerResponse::Unhandled;
            if (const auto served = GuardedServer::servedRequest(); served && served->timedOut)
                fail(res, 408, "REQUEST_TIMEOUT",
                     QStringLiteral("The request did not arrive whole within %1 seconds.")
                         .arg(double(m_setup.limits.requestDeadline.count()) / 1000));
            else if (res.status == 413)
                fail(res, 400, "BAD_REQUEST",
                     QStringLiteral("The request body is larger than %1 bytes.")
                         .arg(RequestValidator::MaxBodyBytes));
            else if (res.status == 404)
                fail(res, 404, "NOT_FOUND", QStringLiteral("There is no such endpoint."));
            else
                fail(res, res.status, "BAD_REQUEST", QStringLiteral("The request cannot be served."));
            return httplib::Server::HandlerResponse::Handled;
        }));

    m_server->Post("/v1/gloss", [this](const httplib::Request& req, httplib::Response& res) {
        const std::string token = bearerToken(req);
        if (m_setup.tokens && !m_setup.tokens->acceptsDeviceToken(QString::fromStdString(token)))
            return fail(res, 401, "UNAUTHORIZED", QStringLiteral("A valid device token is required."));
        auto parsed = RequestValidator::glossRequest(req.body);
        if (auto* problem = std::get_if<QString>(&parsed))
            return fail(res, 400, "BAD_REQUEST", *problem);
        // Counted against what a client cannot make up at will: its device token where one is required,
        // else its address. The x-device-id it sends is only logged.
        if (refusedBy(m_rateLimiter, m_setup.tokens ? token : req.remote_addr, res))
            return;
        const GlossRequest request = std::get<GlossRequest>(parsed);
        res.set_header("cache-control", "no-cache");
        res.set_chunked_content_provider(
            "text/event-stream", [this, request](std::size_t, httplib::DataSink& sink) {
                StreamSink stream(sink, m_stopping);
                if (!stream.write(SSEWriter::meta(m_setup.backend->modelName(request), 0, 0)))
                    return false;
                const BackendOutcome outcome = m_setup.backend->gloss(request, stream);
                if (const auto* result = std::get_if<GlossResult>(&outcome)) {
                    stream.write(SSEWriter::done(*result));
                } else {
                    const auto& error = std::get<BackendError>(outcome);
                    if (m_stopping)
                        stream.write(SSEWriter::error(QStringLiteral("SHUTTING_DOWN"),
                                                      QStringLiteral("The service is shutting down.")));
                    else
                        stream.write(SSEWriter::error(error.code, error.message));
                }
                sink.done();
                return true;
            });
    });

    m_server->Post("/v1/auth/refresh", [this](const httplib::Request& req, httplib::Response& res) {
        if (!m_setup.tokens)
            return fail(res, 404, "NOT_CONFIGURED",
                        QStringLiteral("Token renewal is off: the service runs without --tokens."));
        if (refusedBy(m_refreshLimiter, req.remote_addr, res))
            return;
        auto parsed = RequestValidator::refreshRequest(req.body);
        if (auto* problem = std::get_if<QString>(&parsed))
            return fail(res, 400, "BAD_REQUEST", *problem);
        const auto token =
            m_setup.tokens->exchange(std::get<RequestValidator::RefreshRequest>(parsed).refreshToken);
        if (!token)
            return fail(res, 401, "UNAUTHORIZED", QStringLiteral("The refresh token is not valid."));
        succeed(res, {{QStringLiteral("device_token"), *token}});
    });

    m_server->Get("/v1/updates/latest", [this](const httplib::Request& req, httplib::Response& res) {
        if (!m_setup.releasesDir)
            return succeed(res, m_setup.manifest.value_or(QJsonObject{{QStringLiteral("available"), false}}));
        QFile file(*m_setup.releasesDir + QStringLiteral("/manifest.json"));
        if (!file.exists())
            return succeed(res, {{QStringLiteral("available"), false}}); // nothing released yet
        constexpr qint64 manifestLimit = 1 << 20;
        const QJsonDocument document = file.open(QIODevice::ReadOnly) && file.size() <= manifestLimit
                                           ? QJsonDocument::fromJson(file.read(manifestLimit))
                                           : QJsonDocument();
        if (!document.isObject() || !document.object().value(u"available").isBool())
            return fail(
                res, 500, "BAD_MANIFEST",
                QStringLiteral("The release manifest is not a JSON object with a boolean \"available\"."));
        succeed(res, withAbsoluteUrl(document.object(), req));
    });
    // Only the files of the folder itself, by name; httplib refuses paths that leave it.
    if (m_setup.releasesDir)
        m_server->set_mount_point("/releases", m_setup.releasesDir->toStdString());
}
