#pragma once

#include <QtGlobal>

#include <functional>

// Time as capture sees it: a monotonic reading, a blocking wait for background work, and cancellable
// one-shot callbacks on the main thread. Tests replace it with a clock that only moves when told to.
class Clock {
public:
    using TaskId = quint64;

    virtual ~Clock() = default;

    virtual qint64 nowMs() const = 0;
    // Blocks the calling thread; only background work may wait.
    virtual void sleepFor(int ms) = 0;
    // Runs `task` once on the main thread after `delayMs`, unless cancelled first.
    virtual TaskId schedule(int delayMs, std::function<void()> task) = 0;
    virtual void cancel(TaskId id) = 0;
};
