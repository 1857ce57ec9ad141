#include "NubraGlossd/RateLimiter.h"

#include <algorithm>

namespace {

constexpr auto window = std::chrono::seconds(60);

} // namespace

RateLimiter::RateLimiter(int perMinute, std::size_t maxKeys, Clock clock)
    : m_perMinute(perMinute), m_maxKeys(std::max<std::size_t>(1, maxKeys)), m_clock(std::move(clock)) {}

std::optional<int> RateLimiter::admit(const std::string& key) {
    if (m_perMinute <= 0)
        return std::nullopt;
    const auto now = m_clock();
    std::lock_guard lock(m_mutex);

    // The least recently seen keys sit at the back: forget those quiet for a whole window, and the
    // oldest beyond the bound.
    const auto forgetLast = [this] {
        m_index.erase(m_entries.back().key);
        m_entries.pop_back();
    };
    while (!m_entries.empty() && now - m_entries.back().admitted.back() >= window)
        forgetLast();

    auto found = m_index.find(key);
    if (found == m_index.end()) {
        if (m_entries.size() >= m_maxKeys)
            forgetLast();
        m_entries.push_front(Entry{key, {}});
        found = m_index.emplace(key, m_entries.begin()).first;
    } else {
        m_entries.splice(m_entries.begin(), m_entries, found->second);
    }

    auto& admitted = found->second->admitted;
    while (!admitted.empty() && now - admitted.front() >= window)
        admitted.pop_front();
    if (int(admitted.size()) < m_perMinute) {
        admitted.push_back(now);
        return std::nullopt;
    }
    const auto wait = window - (now - admitted.front());
    return std::max(1, int(std::chrono::ceil<std::chrono::seconds>(wait).count()));
}

std::size_t RateLimiter::size() const {
    std::lock_guard lock(m_mutex);
    return m_entries.size();
}
