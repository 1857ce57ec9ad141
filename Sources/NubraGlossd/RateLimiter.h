#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

// Requests per minute per key (a device token, a peer address), over a sliding window of the last
// 60 seconds. The table remembers at most `maxKeys` keys: those quiet for a whole window are
// forgotten first, then, under a flood of new keys, the least recently seen.
class RateLimiter {
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    // `perMinute` 0 admits everything.
    explicit RateLimiter(int perMinute, std::size_t maxKeys = 4096,
                         Clock clock = std::chrono::steady_clock::now);

    // Nothing when the request may go ahead (and it is counted); otherwise the whole seconds to wait.
    std::optional<int> admit(const std::string& key);
    // How many keys the table remembers.
    std::size_t size() const;

private:
    using TimePoint = std::chrono::steady_clock::time_point;
    struct Entry {
        std::string key;
        std::deque<TimePoint> admitted; // within the window, oldest first
    };

    int m_perMinute;
    std::size_t m_maxKeys;
    Clock m_clock;
    mutable std::mutex m_mutex;
    std::list<Entry> m_entries; // most recently seen first
    std::unordered_map<std::string, std::list<Entry>::iterator> m_index;
};
