#include "NubraPlatform/fake/FakeTaskRunner.h"

#include <QtGlobal>

void FakeTaskRunner::runInBackground(std::function<void()> work) {
    m_queue.push_back({true, std::move(work)});
}

void FakeTaskRunner::runOnMain(std::function<void()> work) {
    m_queue.push_back({false, std::move(work)});
}

void FakeTaskRunner::run(Job job) {
    m_inBackground = job.background;
    if (job.background)
        ++m_backgroundRuns;
    job.work();
    m_inBackground = false;
}

void FakeTaskRunner::drain() {
    while (!m_queue.empty()) {
        Job job = std::move(m_queue.front());
        m_queue.pop_front();
        run(std::move(job));
    }
}

void FakeTaskRunner::runAt(int index) {
    Q_ASSERT(index >= 0 && index < queued());
    const auto at = m_queue.begin() + index;
    Job job = std::move(*at);
    m_queue.erase(at);
    run(std::move(job));
}
