#pragma once

#include <functional>

// Where work runs: blocking reads go to a background pool of user-initiated priority, results come
// back to the main thread through its queue.
class TaskRunner {
public:
    virtual ~TaskRunner() = default;

    virtual void runInBackground(std::function<void()> work) = 0;
    virtual void runOnMain(std::function<void()> work) = 0;
};
