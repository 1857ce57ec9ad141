#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

// A fixed set of threads running jobs in the order they came, with a bounded line of jobs waiting for
// a free thread.
class WorkerPool {
public:
    // `waiting`: how many jobs may wait beside those an idle thread is about to take.
    WorkerPool(int threads, int waiting);
    ~WorkerPool();

    // False, and the job is dropped, when the line is full or the pool is shut down.
    bool trySubmit(std::function<void()> job);
    // Whether a job waits that no idle thread is about to take.
    bool hasWaiting() const;
    // Runs the jobs still waiting, then joins the threads.
    void shutdown();

private:
    void work();

    const std::size_t m_capacity;
    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::function<void()>> m_jobs;
    std::size_t m_idle; // threads not running a job
    bool m_stopping = false;
    std::vector<std::thread> m_threads;
};
