#pragma once

#include <httplib.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

class PeerConnections;
class WorkerPool;

// How much of the service one client, and all of them together, may hold.
struct ConnectionLimits {
    int threads = 16; // connections served at once
    int queue = 64;   // accepted connections waiting for a thread; more are answered 503 at once
    int perPeer = 8;  // connections one address holds, served or waiting; more are answered 429 at once
    // For a request's line, headers and body to arrive whole, from the moment its connection was
    // accepted (the first request) or the request's first byte came (the next ones on the connection).
    std::chrono::milliseconds requestDeadline{5000};
};

// The HTTP server under those limits. A connection is admitted or refused on the accepting thread as
// it arrives, before any thread serves it, and a request that has not arrived whole by its deadline
// is given up, so clients that send slowly, or hold many connections, cannot keep the others waiting.
class GuardedServer : public httplib::Server {
public:
    // Told of each connection refused: the peer's address and the status it was answered with.
    using RefusalLog = std::function<void(const std::string& peer, int status)>;

    GuardedServer(ConnectionLimits limits, RefusalLog refusalLog);
    ~GuardedServer() override;

    // Listens on `host`:`port` (0 picks a free port) and returns the port, or nothing. The backlog holds
    // a burst of connections, which the accepting thread admits or refuses at once.
    std::optional<int> bindTo(const std::string& host, int port);

    // What the thread serving a request knows of it beside what the library parsed, which a request
    // that did not arrive whole lacks.
    struct ServedRequest {
        std::string peer;
        std::chrono::steady_clock::time_point began; // its first byte
        bool timedOut = false;                       // reading it gave up at its deadline
    };
    // Nothing off the threads that serve requests.
    static std::optional<ServedRequest> servedRequest();
    // The whole seconds a refused client is asked to wait before it tries again.
    int retryAfterSeconds() const;

private:
    bool process_and_close_socket(socket_t sock) override;
    void serve(socket_t sock, const std::string& peer, std::chrono::steady_clock::time_point accepted);
    void refuse(socket_t sock, const std::string& peer, int status);
    bool running() const;

    const ConnectionLimits m_limits;
    const RefusalLog m_refusalLog;
    std::unique_ptr<PeerConnections> m_peers;
    std::unique_ptr<WorkerPool> m_workers;
};
