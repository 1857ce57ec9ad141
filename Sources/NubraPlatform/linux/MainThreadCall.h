#pragma once

#include <QCoreApplication>
#include <QThread>

#include <chrono>
#include <future>
#include <memory>
#include <optional>

// Runs `fn` on the main thread and waits at most `timeoutMs` for its answer, so a background reader
// can use main-thread-only Qt services (the clipboard) without ever waiting on a busy main thread
// for long. Nothing comes back on timeout.
template <typename F> auto callOnMainThread(F fn, int timeoutMs) -> std::optional<decltype(fn())> {
    using Result = decltype(fn());
    QCoreApplication* app = QCoreApplication::instance();
    if (!app)
        return std::nullopt;
    if (QThread::currentThread() == app->thread())
        return fn();
    auto promise = std::make_shared<std::promise<Result>>();
    std::future<Result> answer = promise->get_future();
    QMetaObject::invokeMethod(
        app, [promise, fn = std::move(fn)]() { promise->set_value(fn()); }, Qt::QueuedConnection);
    if (answer.wait_for(std::chrono::milliseconds(timeoutMs)) != std::future_status::ready)
        return std::nullopt;
    return answer.get();
}
