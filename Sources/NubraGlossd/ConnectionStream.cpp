#include "NubraGlossd/ConnectionStream.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

using Milliseconds = std::chrono::milliseconds;

// poll() until `events` or `timeout`, retried when a signal interrupts it: >0 ready, 0 timeout, <0 error.
int waitFor(int socket, short events, Milliseconds timeout) {
    const auto until = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        const auto left = std::chrono::ceil<Milliseconds>(until - std::chrono::steady_clock::now());
        pollfd entry{socket, events, 0};
        const int ready = ::poll(&entry, 1, int(std::max<Milliseconds::rep>(0, left.count())));
        if (ready >= 0 || errno != EINTR)
            return ready > 0 && (entry.revents & POLLNVAL) ? -1 : ready;
    }
}

// The numeric address and port of one end of the connection, by getpeername or getsockname.
bool nameOf(int socket, int (*end)(int, sockaddr*, socklen_t*), std::string& ip, int& port) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (end(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        return false;
    char host[NI_MAXHOST];
    char service[NI_MAXSERV];
    if (getnameinfo(reinterpret_cast<const sockaddr*>(&address), length, host, sizeof host, service,
                    sizeof service, NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        return false;
    ip = host;
    port = std::atoi(service);
    return true;
}

} // namespace

ConnectionStream::ConnectionStream(int socket, std::string peer, std::chrono::microseconds writeTimeout,
                                   std::function<bool()> stillServing)
    : m_socket(socket), m_peer(std::move(peer)), m_writeTimeout(writeTimeout),
      m_stillServing(std::move(stillServing)) {}

std::string ConnectionStream::peerAddress(int socket) {
    std::string ip;
    int port = 0;
    return nameOf(socket, getpeername, ip, port) ? ip : std::string();
}

void ConnectionStream::expectRequest(Clock::time_point deadline, std::size_t budget) {
    m_deadline = deadline;
    m_budget = budget;
    m_requestBytes = 0;
    m_missedDeadline = false;
}

int ConnectionStream::waitReadable(Clock::time_point until, const std::function<bool()>& stillWanted) const {
    constexpr Milliseconds slice(50);
    for (;;) {
        if (!stillWanted())
            return -1;
        const auto left = std::chrono::ceil<Milliseconds>(until - Clock::now());
        const int ready = waitFor(m_socket, POLLIN, std::clamp(left, Milliseconds::zero(), slice));
        if (ready != 0 || left <= slice)
            return ready;
    }
}

bool ConnectionStream::awaitRequest(Clock::duration idle, const std::function<bool()>& stillWanted) {
    if (m_begin != m_end)
        return true; // the client sent it before this answer was over
    return waitReadable(Clock::now() + idle, [&] { return m_stillServing() && stillWanted(); }) > 0;
}

bool ConnectionStream::fill() {
    for (;;) {
        const int ready = waitReadable(m_deadline, m_stillServing);
        if (ready == 0)
            m_missedDeadline = true;
        if (ready <= 0)
            return false;
        const ssize_t received = ::recv(m_socket, m_buffer.data(), m_buffer.size(), MSG_DONTWAIT);
        if (received < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK))
            continue;
        if (received <= 0)
            return false;
        m_begin = 0;
        m_end = std::size_t(received);
        return true;
    }
}

bool ConnectionStream::is_readable() const {
    return m_begin != m_end || waitReadable(m_deadline, m_stillServing) > 0;
}

ssize_t ConnectionStream::read(char* ptr, size_t size) {
    if (m_requestBytes == m_budget || (m_begin == m_end && !fill()))
        return -1;
    if (m_requestBytes == 0)
        m_requestBegan = Clock::now();
    const std::size_t count = std::min({size, m_end - m_begin, m_budget - m_requestBytes});
    std::memcpy(ptr, m_buffer.data() + m_begin, count);
    m_begin += count;
    m_requestBytes += count;
    return ssize_t(count);
}

bool ConnectionStream::is_writable() const {
    if (waitFor(m_socket, POLLOUT, std::chrono::ceil<Milliseconds>(m_writeTimeout)) <= 0)
        return false;
    // A peer that has gone reads as the end of its stream, or as an error.
    char probe;
    const ssize_t peeked = ::recv(m_socket, &probe, 1, MSG_PEEK | MSG_DONTWAIT);
    return peeked > 0 || (peeked < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR));
}

ssize_t ConnectionStream::write(const char* ptr, size_t size) {
    if (waitFor(m_socket, POLLOUT, std::chrono::ceil<Milliseconds>(m_writeTimeout)) <= 0)
        return -1;
    for (;;) {
        const ssize_t sent = ::send(m_socket, ptr, size, MSG_NOSIGNAL);
        if (sent >= 0 || errno != EINTR)
            return sent;
    }
}

void ConnectionStream::get_remote_ip_and_port(std::string& ip, int& port) const {
    nameOf(m_socket, getpeername, ip, port);
}

void ConnectionStream::get_local_ip_and_port(std::string& ip, int& port) const {
    nameOf(m_socket, getsockname, ip, port);
}
