#include "NubraGlossd/AccessLog.h"

#include <ctime>

AccessLog::AccessLog(std::FILE* out) : m_out(out) {}

std::string AccessLog::printable(std::string_view text, std::size_t limit) {
    std::string clean;
    for (char c : text.substr(0, limit))
        clean += (c > 0x20 && c < 0x7f && c != '"') ? c : '?';
    if (text.size() > limit)
        clean += "...";
    return clean.empty() ? "-" : clean;
}

void AccessLog::write(std::string_view peer, std::string_view method, std::string_view path, int status,
                      std::chrono::milliseconds duration, std::string_view deviceId) {
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%SZ", &utc);
    const std::string line = std::string(stamp) + ' ' + printable(peer, 64) + " \"" + printable(method, 16) +
                             ' ' + printable(path, 256) + "\" " + std::to_string(status) + ' ' +
                             std::to_string(duration.count()) + "ms device=" + printable(deviceId, 64) + '\n';
    std::lock_guard lock(m_mutex);
    std::fputs(line.c_str(), m_out);
    std::fflush(m_out);
}
