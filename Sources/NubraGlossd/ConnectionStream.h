#pragma once

#include <httplib.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

// One accepted connection as the HTTP library reads and writes it. Reading a request is bounded twice:
// waiting for bytes that have not arrived yet ends at the request's deadline, and a request may take
// no more than its byte budget. Bytes already received are always read, however late. Writing, an
// answer or an open event stream, knows no deadline, only a timeout per write.
class ConnectionStream final : public httplib::Stream {
public:
    using Clock = std::chrono::steady_clock;

    // `stillServing` is asked a few times a second while a read waits, which ends when it turns false.
    ConnectionStream(int socket, std::string peer, std::chrono::microseconds writeTimeout,
                     std::function<bool()> stillServing);

    // The peer's address, as the access log and the limits name it ("" when it is unknown).
    static std::string peerAddress(int socket);

    const std::string& peer() const { return m_peer; }

    // Bounds the reads of the next request.
    void expectRequest(Clock::time_point deadline, std::size_t budget);
    // When the first byte of the current request was read.
    Clock::time_point requestBegan() const { return m_requestBegan; }
    // Whether a read of the current request gave up at its deadline.
    bool missedDeadline() const { return m_missedDeadline; }
    // Waits for the first byte of the next request: false when `idle` passes, `stillWanted` turns
    // false (it is asked as often as `stillServing`) or the connection fails.
    bool awaitRequest(Clock::duration idle, const std::function<bool()>& stillWanted);

    bool is_readable() const override;
    bool is_writable() const override;
    ssize_t read(char* ptr, size_t size) override;
    ssize_t write(const char* ptr, size_t size) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    socket_t socket() const override { return m_socket; }

private:
    // Waits for bytes until `until`, `stillWanted` turns false or the connection fails: >0 ready, 0 not
    // in time, <0 failed or no longer wanted.
    int waitReadable(Clock::time_point until, const std::function<bool()>& stillWanted) const;
    // Waits until the deadline for more bytes; false at the deadline, at the end of the stream or on
    // an error.
    bool fill();

    int m_socket;
    std::string m_peer;
    std::chrono::microseconds m_writeTimeout;
    std::function<bool()> m_stillServing;
    std::array<char, 4096> m_buffer{};
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    Clock::time_point m_deadline;
    std::size_t m_budget = 0;
    std::size_t m_requestBytes = 0;
    Clock::time_point m_requestBegan;
    bool m_missedDeadline = false;
};
