#pragma once

#include "NubraPlatform/Clock.h"

#include <QElapsedTimer>
#include <QObject>

#include <map>

class QTimer;

// Wall time: a monotonic timer, thread sleeps and single-shot QTimers on the main thread.
class QtClock final : public QObject, public Clock {
public:
    QtClock();
    qint64 nowMs() const override { return m_elapsed.elapsed(); }
    void sleepFor(int ms) override;
    TaskId schedule(int delayMs, std::function<void()> task) override;
    void cancel(TaskId id) override;

private:
    QElapsedTimer m_elapsed;
    TaskId m_next = 1;
    std::map<TaskId, QTimer*> m_timers;
};
