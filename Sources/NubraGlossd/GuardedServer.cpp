#include "NubraGlossd/GuardedServer.h"

#include "NubraGlossd/ConnectionStream.h"
#include "NubraGlossd/Envelope.h"
#include "NubraGlossd/WorkerPool.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <mutex>
#include <unordered_map>

namespace {

using Clock = std::chrono::steady_clock;

// What a request line and its headers may take beside the body.
constexpr std::size_t HeadBudget = 32 * 1024;

thread_local const ConnectionStream* servedStream = nullptr;

// httplib hands each accepted connection to its task queue as a job that calls
// process_and_close_socket. This queue runs that job at once, on the accepting thread, where the
// connection is given to the worker pool or refused; shutting it down waits for the pool.
class AdmitAtOnce final : public httplib::TaskQueue {
public:
    explicit AdmitAtOnce(WorkerPool& pool) : m_pool(pool) {}

    void enqueue(std::function<void()> admit) override { admit(); }
    void shutdown() override { m_pool.shutdown(); }

private:
    WorkerPool& m_pool;
};

} // namespace

// The connections each peer address holds, served or waiting, up to a cap.
class PeerConnections {
public:
    explicit PeerConnections(int cap) : m_cap(cap) {}

    bool tryAdd(const std::string& peer) {
        std::lock_guard lock(m_mutex);
        int& open = m_open[peer];
        if (open >= m_cap) {
            if (open == 0)
                m_open.erase(peer);
            return false;
        }
        ++open;
        return true;
    }
    void remove(const std::string& peer) {
        std::lock_guard lock(m_mutex);
        const auto it = m_open.find(peer);
        if (it != m_open.end() && --it->second <= 0)
            m_open.erase(it);
    }

private:
    const int m_cap;
    std::mutex m_mutex;
    std::unordered_map<std::string, int> m_open; // only peers with a connection open
};

GuardedServer::GuardedServer(ConnectionLimits limits, RefusalLog refusalLog)
    : m_limits(limits), m_refusalLog(std::move(refusalLog)),
      m_peers(std::make_unique<PeerConnections>(std::max(1, limits.perPeer))) {
    new_task_queue = [this] {
        m_workers = std::make_unique<WorkerPool>(m_limits.threads, m_limits.queue);
        return new AdmitAtOnce(*m_workers);
    };
}

GuardedServer::~GuardedServer() = default;

std::optional<int> GuardedServer::bindTo(const std::string& host, int port) {
    const int bound = port == 0 ? bind_to_any_port(host) : (bind_to_port(host, port) ? port : -1);
    // The library listens with a backlog of 5: a burst beyond it would wait a second for the
    // retransmission of its connection request.
    if (bound <= 0 || ::listen(svr_sock_, SOMAXCONN) != 0)
        return std::nullopt;
    return bound;
}

std::optional<GuardedServer::ServedRequest> GuardedServer::servedRequest() {
    if (!servedStream)
        return std::nullopt;
    return ServedRequest{servedStream->peer(), servedStream->requestBegan(), servedStream->missedDeadline()};
}

int GuardedServer::retryAfterSeconds() const {
    return std::max(1, int(std::chrono::ceil<std::chrono::seconds>(m_limits.requestDeadline).count()));
}

bool GuardedServer::running() const {
    return svr_sock_ != INVALID_SOCKET;
}

bool GuardedServer::process_and_close_socket(socket_t sock) {
    const auto accepted = Clock::now();
    const std::string peer = ConnectionStream::peerAddress(sock);
    if (peer.empty()) { // gone already
        ::close(sock);
        return false;
    }
    if (!m_peers->tryAdd(peer)) {
        refuse(sock, peer, 429);
        return false;
    }
    if (!m_workers->trySubmit([this, sock, peer, accepted] {
            serve(sock, peer, accepted);
            m_peers->remove(peer);
        })) {
        m_peers->remove(peer);
        refuse(sock, peer, 503);
        return false;
    }
    return true;
}

void GuardedServer::serve(socket_t sock, const std::string& peer, Clock::time_point accepted) {
    ConnectionStream stream(
        sock, peer, std::chrono::seconds(write_timeout_sec_) + std::chrono::microseconds(write_timeout_usec_),
        [this] { return running(); });
    servedStream = &stream;
    const std::size_t budget = HeadBudget + payload_max_length_;
    const auto othersWait = [this] { return m_workers->hasWaiting(); };
    auto deadline = accepted + m_limits.requestDeadline;
    for (std::size_t served = 0; served < keep_alive_max_count_ && running(); ++served) {
        if (served > 0) {
            // Kept open for the client's next request only while no other connection waits.
            if (!stream.awaitRequest(std::chrono::seconds(keep_alive_timeout_sec_),
                                     [&] { return !othersWait(); }))
                break;
            deadline = Clock::now() + m_limits.requestDeadline;
        }
        stream.expectRequest(deadline, budget);
        const bool last = served + 1 == keep_alive_max_count_ || othersWait();
        bool closedByClient = false;
        if (!process_request(stream, last, closedByClient, nullptr) || closedByClient || last)
            break;
    }
    servedStream = nullptr;
    ::shutdown(sock, SHUT_RDWR);
    ::close(sock);
}

void GuardedServer::refuse(socket_t sock, const std::string& peer, int status) {
    const int wait = retryAfterSeconds();
    const std::string body =
        status == 503
            ? Envelope::failure(QStringLiteral("BUSY"),
                                QStringLiteral("The service is busy; try again in %1 seconds.").arg(wait))
            : Envelope::failure(QStringLiteral("TOO_MANY_CONNECTIONS"),
                                QStringLiteral("Too many connections from your address; try "
                                               "again in %1 seconds.")
                                    .arg(wait));
    const std::string answer =
        std::string(status == 503 ? "HTTP/1.1 503 Service Unavailable\r\n"
                                  : "HTTP/1.1 429 Too Many Requests\r\n") +
        "content-type: application/json\r\ncontent-length: " + std::to_string(body.size()) +
        "\r\nretry-after: " + std::to_string(wait) + "\r\nconnection: close\r\n\r\n" + body;
    // What the client has sent already is read and dropped, so closing does not reset the connection
    // before the answer is read; the accepting thread never waits for more.
    std::array<char, 4096> dropped;
    int reads = 16;
    while (reads-- > 0 && ::recv(sock, dropped.data(), dropped.size(), MSG_DONTWAIT) > 0)
        continue;
    ::send(sock, answer.data(), answer.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    ::shutdown(sock, SHUT_WR);
    ::close(sock);
    if (m_refusalLog)
        m_refusalLog(peer, status);
}
