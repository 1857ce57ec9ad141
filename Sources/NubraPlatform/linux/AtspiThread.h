#pragma once

#include "NubraPlatform/EventMonitors.h"

#include <QElapsedTimer>
#include <QString>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
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

    // How long the search for the focused object may take before it gives up.
    static constexpr int searchMs = 300;
    // How long after a selection changed its object still stands for the user's selection.
    static constexpr int selectionFreshMs = 3000;

    bool isReady() const { return m_ready; }

    // The element that has focus, referenced for the caller (unref with g_object_unref); null when none
    // has. Nothing when the search did not finish within `timeoutMs`. This process's own windows are
    // never searched: answering would need the GUI thread, which may be the one waiting.
    std::optional<AtspiAccessible*> takeFocused(int timeoutMs);

    // The object of `focused`'s application that told of a selection change in the last few seconds,
    // unless it is `focused` itself; referenced for the caller, or null. Call it on the AT-SPI thread.
    AtspiAccessible* selectionSourceBeside(AtspiAccessible* focused);

    // Runs `fn` on the AT-SPI thread; nothing when it does not answer within `timeoutMs`. A result that
    // comes too late is handed to `discard` on the AT-SPI thread, so references it holds are not lost.
    template <typename F>
    auto call(F fn, int timeoutMs, std::function<void(decltype(std::declval<F>()())&)> discard = {})
        -> std::optional<decltype(fn())> {
        using Result = decltype(fn());
        struct Handoff {
            std::mutex lock;
            std::promise<Result> promise;
            bool abandoned = false;
        };
        auto handoff = std::make_shared<Handoff>();
        std::future<Result> answer = handoff->promise.get_future();
        submit([handoff, fn = std::move(fn), discard]() mutable {
            Result result = fn();
            std::lock_guard guard(handoff->lock);
            if (!handoff->abandoned)
                handoff->promise.set_value(std::move(result));
            else if (discard)
                discard(result);
        });
        if (answer.wait_for(std::chrono::milliseconds(timeoutMs)) != std::future_status::ready) {
            std::lock_guard guard(handoff->lock);
            // The answer may have arrived between the wait and the lock; then it is still ours.
            if (answer.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
                handoff->abandoned = true;
                return std::nullopt;
            }
        }
        return answer.get();
    }

    // Asks the application with this process id to build its tree, once per process: Chromium and
    // Electron publish their pages only after an assistive technology has asked for an attribute of
    // the application. True when such an application was asked now. Call it on the AT-SPI thread.
    bool wakeApplication(qint64 processId);

    // Hears every selection change in another application, on the AT-SPI thread, with whether it left
    // the selection empty. Only desktops that hide the pointer need it: each change costs a question to
    // the application.
    void setSelectionListener(std::function<void(const SelectionChange&)> listener);

    // The process and name of the application whose object last gained focus or changed its selection;
    // nothing when none is known. Kept up to date as events arrive, so it answers at once from any thread.
    struct Application {
        qint64 processId = 0;
        QString name;
    };
    std::optional<Application> focusedApplication();

private:
    // Runs `task` on the AT-SPI thread: at once when called there, else as soon as the thread is free.
    void submit(std::function<void()> task);
    // Runs `task` on the AT-SPI thread once what it does now is done, also when called there.
    void later(std::function<void()> task);
    void run(int dbusTimeoutMs, std::promise<bool>& started);
    static void onEvent(void* event, void* self);
    AtspiAccessible* searchFocused();
    AtspiAccessible* recentSelectionSource();
    void tellSelectionChange(AtspiAccessible* source);
    void noteApplication(AtspiAccessible* object);

    GMainContext* m_context = nullptr;
    GMainLoop* m_loop = nullptr;
    AtspiEventListener* m_listener = nullptr;
    std::mutex m_lock;
    AtspiAccessible* m_focused = nullptr;
    AtspiAccessible* m_selectionSource = nullptr;
    QElapsedTimer m_selectionChanged;
    std::set<qint64> m_woken;                                        // AT-SPI thread only
    std::function<void(const SelectionChange&)> m_selectionListener; // under m_lock
    std::optional<Application> m_application;                        // under m_lock
    bool m_ready = false;
    std::thread m_thread;
};
