#include "NubraPlatform/fake/FakeClock.h"

void FakeClock::sleepFor(int ms) {
    m_sleeps.append(ms);
    m_now += ms;
    if (m_onSleep)
        m_onSleep(ms);
}

Clock::TaskId FakeClock::schedule(int delayMs, std::function<void()> task) {
    const TaskId id = m_nextId++;
    m_tasks.emplace(std::pair{m_now + qMax(delayMs, 0), id}, std::move(task));
    return id;
}

void FakeClock::cancel(TaskId id) {
    std::erase_if(m_tasks, [id](const auto& entry) { return entry.first.second == id; });
}

void FakeClock::advance(int ms) {
    const qint64 end = m_now + ms;
    while (!m_tasks.empty() && m_tasks.begin()->first.first <= end) {
        auto node = m_tasks.extract(m_tasks.begin());
        m_now = qMax(m_now, node.key().first);
        node.mapped()();
    }
    m_now = end;
}
