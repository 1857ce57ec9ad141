#include "NubraGlossd/RateLimiter.h"

#include <algorithm>

namespace {

constexpr auto window = std::chrono::seconds(60);

} // namespace

RateLimiter::RateLimiter(int perMinute, Clock clock) : m_perMinute(perMinute), m_clock(std::move(clock)) {}

std::optional<int> RateLimiter::admit(const QString& device) {
    if (m_perMinute <= 0)
        return std::nullopt;
    const auto now = m_clock();
    std::lock_guard lock(m_mutex);

    // Forget devices that have been quiet for a whole window, so the table stays small.
    for (auto it = m_recent.begin(); it != m_recent.end();) {
        auto& times = it->second;
        while (!times.empty() && now - times.front() >= window)
            times.pop_front();
        it = times.empty() && it->first != device ? m_recent.erase(it) : std::next(it);
    }

    auto& times = m_recent[device];
    if (int(times.size()) < m_perMinute) {
        times.push_back(now);
        return std::nullopt;
    }
    const auto wait = window - (now - times.front());
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(wait).count();
    return std::max(1, int(seconds));
}
