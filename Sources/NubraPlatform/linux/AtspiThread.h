#pragma once

#include <QString>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

typedef struct _GMainContext GMainContext;
typedef struct _GMainLoop GMainLoop;
typedef struct _AtspiAccessible AtspiAccessible;
typedef struct _AtspiEventListener AtspiEventListener;

// The one thread that talks to libatspi. It runs a GLib loop that delivers focus events, and executes
// submitted calls in order.
class AtspiThread {
public:
    explicit AtspiThread(int dbusTimeoutMs);
    ~AtspiThread();
    AtspiThread(const AtspiThread&) = delete;
    AtspiThread& operator=(const AtspiThread&) = delete;

    bool isReady() const { return m_ready; }

    // The element that last gained focus, referenced for the caller (unref with g_object_unref).
    AtspiAccessible* takeFocused(int timeoutMs);

    // Runs `fn` on the AT-SPI thread; nothing when it does not answer within `timeoutMs`.
    template <typename F> auto call(F fn, int timeoutMs) -> std::optional<decltype(fn())> {
        using Result = decltype(fn());
        auto promise = std::make_shared<std::promise<Result>>();
        std::future<Result> answer = promise->get_future();
        submit([promise, fn = std::move(fn)]() mutable { promise->set_value(fn()); });
        if (answer.wait_for(std::chrono::milliseconds(timeoutMs)) != std::future_status::ready)
            return std::nullopt;
        return answer.get();
    }

private:
    void submit(std::function<void()> task);
    void run(int dbusTimeoutMs, std::promise<bool>& started);
    static void onFocus(void* event, void* self);
    AtspiAccessible* searchFocused();

    GMainContext* m_context = nullptr;
    GMainLoop* m_loop = nullptr;
    AtspiEventListener* m_listener = nullptr;
    std::mutex m_lock;
    AtspiAccessible* m_focused = nullptr;
    bool m_ready = false;
    std::thread m_thread;
};
