#pragma once

#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>

// One line per request: UTC time, peer, request line, status, duration and device id. Header values
// other than the device id never reach it, so no credential can.
class AccessLog {
public:
    explicit AccessLog(std::FILE* out);

    void write(std::string_view peer, std::string_view method, std::string_view path, int status,
               std::chrono::milliseconds duration, std::string_view deviceId);

    // Keeps what a client sent from forging log lines: printable ASCII only, bounded length.
    static std::string printable(std::string_view text, std::size_t limit);

private:
    std::FILE* m_out;
    std::mutex m_mutex;
};
