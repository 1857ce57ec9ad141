#pragma once

#include "NubraPlatform/Clock.h"

#include <QList>

#include <map>
#include <utility>

// A clock that moves only when a test says so. Blocking waits advance it at once and are recorded;
// scheduled tasks run, in due order, only from advance().
class FakeClock final : public Clock {
public:
    qint64 nowMs() const override { return m_now; }
    void sleepFor(int ms) override;
    TaskId schedule(int delayMs, std::function<void()> task) override;
    void cancel(TaskId id) override;

    // Moves time forward, running every task that falls due on the way.
    void advance(int ms);
    int pendingTasks() const { return int(m_tasks.size()); }

    // Every blocking wait so far, in milliseconds, in order.
    QList<int> sleeps() const { return m_sleeps; }
    void clearSleeps() { m_sleeps.clear(); }
    // Called after each blocking wait with the time it took; tests change the desktop here.
    void setOnSleep(std::function<void(int ms)> hook) { m_onSleep = std::move(hook); }

private:
    qint64 m_now = 1'000'000;
    TaskId m_nextId = 1;
    // Keyed by (due time, id) so equal due times run in scheduling order.
    std::map<std::pair<qint64, TaskId>, std::function<void()>> m_tasks;
    QList<int> m_sleeps;
    std::function<void(int)> m_onSleep;
};
