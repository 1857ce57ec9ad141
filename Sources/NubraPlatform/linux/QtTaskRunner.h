#pragma once

#include "NubraPlatform/TaskRunner.h"

// Background work on the global thread pool, results through the application's event queue.
class QtTaskRunner final : public TaskRunner {
public:
    void runInBackground(std::function<void()> work) override;
    void runOnMain(std::function<void()> work) override;
};
