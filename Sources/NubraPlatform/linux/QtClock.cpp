#include "NubraPlatform/linux/QtClock.h"

#include <QThread>
#include <QTimer>

QtClock::QtClock() {
    m_elapsed.start();
}

void QtClock::sleepFor(int ms) {
    QThread::msleep(ulong(ms));
}

Clock::TaskId QtClock::schedule(int delayMs, std::function<void()> task) {
    const TaskId id = m_next++;
    auto* timer = new QTimer(this);
    timer->setSingleShot(true);
    timer->setTimerType(Qt::PreciseTimer);
    connect(timer, &QTimer::timeout, this, [this, id, task = std::move(task)]() {
        cancel(id); // forget the timer first: the task may schedule again
        task();
    });
    m_timers.emplace(id, timer);
    timer->start(delayMs);
    return id;
}

void QtClock::cancel(TaskId id) {
    const auto found = m_timers.find(id);
    if (found == m_timers.end())
        return;
    found->second->stop();
    found->second->deleteLater();
    m_timers.erase(found);
}
