#pragma once

#include "NubraPlatform/TaskRunner.h"

#include <deque>

// Queues work instead of running it, so a test decides when background reads finish and when their
// results reach the main thread.
class FakeTaskRunner final : public TaskRunner {
public:
    void runInBackground(std::function<void()> work) override;
    void runOnMain(std::function<void()> work) override;

    // Runs queued work, including work queued meanwhile, until nothing is left.
    void drain();
    // Runs only the job at `index` in the queue (0 is the oldest), so work can finish out of order.
    void runAt(int index);
    int queued() const { return int(m_queue.size()); }
    int backgroundRuns() const { return m_backgroundRuns; }
    bool inBackground() const { return m_inBackground; }

private:
    struct Job {
        bool background;
        std::function<void()> work;
    };
    void run(Job job);

    std::deque<Job> m_queue;
    int m_backgroundRuns = 0;
    bool m_inBackground = false;
};
