#pragma once

#include <QByteArray>
#include <QList>
#include <QUrl>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

class SelfSignedCertificate;
namespace httplib {
class Server;
}

// An HTTP (or HTTPS) server on a free loopback port, running in a background thread, that answers
// with scripted responses. Bodies are written in controlled pieces, so a test decides exactly where a
// stream is cut, how long it stalls, and whether the connection stays open afterwards.
class LocalHttpServer {
public:
    struct Header {
        QByteArray name;
        QByteArray value;
    };

    struct Request {
        QByteArray method;
        QByteArray path;
        QList<Header> headers; // names in lower case, in name order
        QByteArray body;

        bool hasHeader(const QByteArray& name) const;
        QByteArray header(const QByteArray& name) const;
    };

    struct Piece {
        QByteArray bytes;
        std::chrono::milliseconds delay{0}; // waited before the bytes are written
    };

    enum class Ending {
        complete, // the body ends properly
        holdOpen, // after the last piece nothing more is sent until the client leaves or the server stops
        drop,     // the connection is closed without ending the body
    };

    struct Response {
        int status = 200;
        QList<Header> headers;
        QByteArray contentType = "text/event-stream";
        QList<Piece> pieces; // sent as a chunked body
        Ending ending = Ending::complete;
        bool chunked = true; // false: the one piece is sent at once with a content length

        // A whole body with a length, sent at once.
        static Response whole(int status, QByteArray body, QByteArray contentType = "application/json");
        // A chunked body cut into the given pieces.
        static Response streamed(QList<QByteArray> pieces, Ending ending = Ending::complete);
    };

    using Handler = std::function<Response(const Request&)>;

    LocalHttpServer();
    explicit LocalHttpServer(const SelfSignedCertificate& certificate); // HTTPS
    ~LocalHttpServer();
    LocalHttpServer(const LocalHttpServer&) = delete;
    LocalHttpServer& operator=(const LocalHttpServer&) = delete;

    // Routes (GET or POST) may be added before start() only.
    void route(const QByteArray& method, const QByteArray& path, Handler handler);

    bool start();
    void stop();

    quint16 port() const { return m_port; }
    QUrl url() const; // scheme, 127.0.0.1 and the port, no path

    // An http address on loopback where nothing listens (a port just given up by the system).
    static QUrl closedPortUrl();

    std::vector<Request> requests() const;
    // When each piece's last byte was handed to the socket, in the order written.
    std::vector<std::chrono::steady_clock::time_point> pieceWriteTimes() const;
    // Responses whose client went away while their body was still being sent or held open.
    int abandonedResponses() const { return m_abandoned.load(); }

private:
    bool waitFor(std::chrono::milliseconds delay) const; // false when the server is stopping
    void serve(const Response& response, void* httplibResponse);

    std::unique_ptr<httplib::Server> m_server;
    bool m_tls = false;
    std::thread m_thread;
    quint16 m_port = 0;
    std::atomic<bool> m_stopping{false};
    std::atomic<int> m_abandoned{0};
    mutable std::mutex m_mutex;
    std::vector<Request> m_requests;
    std::vector<std::chrono::steady_clock::time_point> m_writeTimes;
};
