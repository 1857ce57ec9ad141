#include "NubraGlossd/WorkerPool.h"

#include <algorithm>

WorkerPool::WorkerPool(int threads, int waiting)
    : m_capacity(std::size_t(std::max(1, waiting))), m_idle(std::size_t(std::max(1, threads))) {
    for (std::size_t i = 0; i < m_idle; ++i)
        m_threads.emplace_back([this] { work(); });
}

WorkerPool::~WorkerPool() {
    shutdown();
}

bool WorkerPool::trySubmit(std::function<void()> job) {
    {
        std::lock_guard lock(m_mutex);
        if (m_stopping || m_jobs.size() >= m_idle + m_capacity)
            return false;
        m_jobs.push_back(std::move(job));
    }
    m_wake.notify_one();
    return true;
}

bool WorkerPool::hasWaiting() const {
    std::lock_guard lock(m_mutex);
    return m_jobs.size() > m_idle;
}

void WorkerPool::shutdown() {
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    for (auto& thread : m_threads)
        if (thread.joinable())
            thread.join();
}

void WorkerPool::work() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_wake.wait(lock, [this] { return !m_jobs.empty() || m_stopping; });
        if (m_jobs.empty())
            return; // stopping, and nothing left to run
        std::function<void()> job = std::move(m_jobs.front());
        m_jobs.pop_front();
        --m_idle;
        lock.unlock();
        job();
        lock.lock();
        ++m_idle;
    }
}
