#pragma once

#include <QString>

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>

// Lookups per minute per device, over a sliding window of the last 60 seconds.
class RateLimiter {
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    // `perMinute` 0 admits everything.
    explicit RateLimiter(int perMinute, Clock clock = std::chrono::steady_clock::now);

    // Nothing when the lookup may go ahead (and it is counted); otherwise the whole seconds to wait.
    std::optional<int> admit(const QString& device);

private:
    int m_perMinute;
    Clock m_clock;
    std::mutex m_mutex;
    std::map<QString, std::deque<std::chrono::steady_clock::time_point>> m_recent;
};
