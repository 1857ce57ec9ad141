#include "NubraPlatform/fake/FakeTaskRunner.h"

void FakeTaskRunner::runInBackground(std::function<void()> work) {
    m_queue.push_back({true, std::move(work)});
}

void FakeTaskRunner::runOnMain(std::function<void()> work) {
    m_queue.push_back({false, std::move(work)});
}

void FakeTaskRunner::drain() {
    while (!m_queue.empty()) {
        Job job = std::move(m_queue.front());
        m_queue.pop_front();
        m_inBackground = job.background;
        if (job.background)
            ++m_backgroundRuns;
        job.work();
        m_inBackground = false;
    }
}
