#include "TestSupport/LocalHttpServer.h"

#include "TestSupport/SelfSignedCertificate.h"

#include <QTcpServer>

#include <httplib.h>

#include <algorithm>

using namespace std::chrono_literals;

namespace {

std::string toStd(const QByteArray& bytes) {
    return bytes.toStdString();
}

QByteArray fromStd(const std::string& text) {
    return QByteArray(text.data(), qsizetype(text.size()));
}

} // namespace

bool LocalHttpServer::Request::hasHeader(const QByteArray& name) const {
    return std::any_of(headers.begin(), headers.end(),
                       [&](const Header& h) { return h.name == name.toLower(); });
}

QByteArray LocalHttpServer::Request::header(const QByteArray& name) const {
    for (const Header& h : headers)
        if (h.name == name.toLower())
            return h.value;
    return {};
}

LocalHttpServer::Response LocalHttpServer::Response::whole(int status, QByteArray body,
                                                           QByteArray contentType) {
    Response response;
    response.status = status;
    response.contentType = std::move(contentType);
    response.pieces = {Piece{std::move(body)}};
    response.chunked = false;
    return response;
}

LocalHttpServer::Response LocalHttpServer::Response::streamed(QList<QByteArray> pieces, Ending ending) {
    Response response;
    for (QByteArray& bytes : pieces)
        response.pieces.append(Piece{std::move(bytes)});
    response.ending = ending;
    return response;
}

LocalHttpServer::LocalHttpServer() : m_server(std::make_unique<httplib::Server>()) {}

LocalHttpServer::LocalHttpServer(const SelfSignedCertificate& certificate)
    : m_server(std::make_unique<httplib::SSLServer>(static_cast<X509*>(certificate.x509()),
                                                    static_cast<EVP_PKEY*>(certificate.privateKey()))),
      m_tls(true) {}

LocalHttpServer::~LocalHttpServer() {
    stop();
}

void LocalHttpServer::route(const QByteArray& method, const QByteArray& path, Handler handler) {
    auto adapter = [this, handler = std::move(handler)](const httplib::Request& in, httplib::Response& out) {
        Request request{fromStd(in.method), fromStd(in.path), {}, fromStd(in.body)};
        for (const auto& [name, value] : in.headers)
            request.headers.append({fromStd(name).toLower(), fromStd(value)});
        {
            std::lock_guard lock(m_mutex);
            m_requests.push_back(request);
        }
        serve(handler(request), &out);
    };
    if (method == "GET")
        m_server->Get(toStd(path), adapter);
    else
        m_server->Post(toStd(path), adapter);
}

void LocalHttpServer::serve(const Response& response, void* httplibResponse) {
    auto& out = *static_cast<httplib::Response*>(httplibResponse);
    out.status = response.status;
    for (const Header& header : response.headers)
        out.set_header(toStd(header.name), toStd(header.value));
    if (!response.chunked) {
        out.set_content(toStd(response.pieces.value(0).bytes), toStd(response.contentType));
        return;
    }
    auto next = std::make_shared<qsizetype>(0);
    out.set_chunked_content_provider(
        toStd(response.contentType), [this, response, next](size_t, httplib::DataSink& sink) {
            if (*next < response.pieces.size()) {
                const Piece& piece = response.pieces[(*next)++];
                if (!waitFor(piece.delay))
                    return false;
                if (!sink.write(piece.bytes.constData(), size_t(piece.bytes.size()))) {
                    ++m_abandoned;
                    return false;
                }
                std::lock_guard lock(m_mutex);
                m_writeTimes.push_back(std::chrono::steady_clock::now());
                return true;
            }
            switch (response.ending) {
            case Ending::complete:
                sink.done();
                return true;
            case Ending::drop:
                return false;
            case Ending::holdOpen:
                // An empty line is a no-op in an event stream; writing one is how a client that left
                // is noticed.
                while (waitFor(50ms)) {
                    if (!sink.write("\n", 1)) {
                        ++m_abandoned;
                        return false;
                    }
                }
                return false;
            }
            return false;
        });
}

bool LocalHttpServer::start() {
    m_server->set_keep_alive_timeout(1);
    const int port = m_server->bind_to_any_port("127.0.0.1");
    if (port <= 0)
        return false;
    m_port = quint16(port);
    m_thread = std::thread([this] { m_server->listen_after_bind(); });
    while (!m_server->is_running())
        std::this_thread::sleep_for(1ms);
    return true;
}

void LocalHttpServer::stop() {
    m_stopping = true;
    if (m_thread.joinable()) {
        m_server->stop();
        m_thread.join();
    }
}

QUrl LocalHttpServer::url() const {
    QUrl url;
    url.setScheme(m_tls ? QStringLiteral("https") : QStringLiteral("http"));
    url.setHost(QStringLiteral("127.0.0.1"));
    url.setPort(m_port);
    return url;
}

QUrl LocalHttpServer::closedPortUrl() {
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost);
    QUrl url(QStringLiteral("http://127.0.0.1"));
    url.setPort(probe.serverPort());
    return url;
}

std::vector<LocalHttpServer::Request> LocalHttpServer::requests() const {
    std::lock_guard lock(m_mutex);
    return m_requests;
}

std::vector<std::chrono::steady_clock::time_point> LocalHttpServer::pieceWriteTimes() const {
    std::lock_guard lock(m_mutex);
    return m_writeTimes;
}

bool LocalHttpServer::waitFor(std::chrono::milliseconds delay) const {
    const auto until = std::chrono::steady_clock::now() + delay;
    while (!m_stopping) {
        const auto now = std::chrono::steady_clock::now();
        if (now >= until)
            return true;
        std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(until - now, 5ms));
    }
    return false;
}
