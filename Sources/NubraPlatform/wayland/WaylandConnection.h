#pragma once

#include "NubraPlatform/DesktopCapabilities.h"

#include <QByteArray>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <type_traits>
#include <vector>

struct wl_callback;
struct wl_display;
struct wl_registry;
struct wl_seat;
struct wl_keyboard;
struct zwp_virtual_keyboard_manager_v1;
struct zwp_virtual_keyboard_v1;
class DataControlDevice;

// A connection of Nubra's own to the Wayland compositor, beside Qt's (which runs on XWayland). Every
// protocol object lives on the connection's thread, which polls the socket and a wake pipe; other
// threads reach those objects with call(). Without a compositor, or after it went away, the connection
// is idle and every call answers nothing.
class WaylandConnection {
public:
    static constexpr int startTimeoutMs = 1000;
    // The user's keymap is a few tens of KiB; anything much bigger is not one.
    static constexpr qsizetype maxKeymapBytes = 1024 * 1024;
    // How long a reader of one of our own selections gets to take the data.
    static constexpr int serveTimeoutMs = 5000;

    // The protocol objects, for work that runs on the connection's thread. Null when not offered.
    struct Objects {
        wl_display* display = nullptr;
        wl_seat* seat = nullptr;
        zwp_virtual_keyboard_manager_v1* virtualKeyboards = nullptr;
        DataControlDevice* dataControl = nullptr;
        // The keymap of the seat's keyboard (XKB text), empty before the compositor sent one.
        QByteArray keymap;
        // Our virtual keyboard, once made, and the keymap it was given; the connection destroys it.
        zwp_virtual_keyboard_v1* virtualKeyboard = nullptr;
        QByteArray virtualKeymap;
    };

    // Connects to $WAYLAND_DISPLAY and waits (at most startTimeoutMs) for the compositor's globals.
    WaylandConnection();
    ~WaylandConnection();
    WaylandConnection(const WaylandConnection&) = delete;
    WaylandConnection& operator=(const WaylandConnection&) = delete;

    bool connected() const { return m_running.load(); }
    WaylandGlobals globals() const;

    // Runs `work(Objects&)` on the connection's thread and returns its result; nothing when the
    // connection is gone or the work did not finish within `timeoutMs`.
    template <typename Work>
    auto call(Work work, int timeoutMs) -> std::optional<std::invoke_result_t<Work, Objects&>>;

    // From the connection's thread: writes `bytes` into `fd` (which it takes) without blocking the
    // thread, and closes it when done or after serveTimeoutMs.
    void serve(int fd, QByteArray bytes);

private:
    struct PendingWrite {
        int fd;
        QByteArray bytes;
        qsizetype written;
        std::chrono::steady_clock::time_point deadline;
    };

    bool post(std::function<void(Objects&)> task);
    void run();
    bool connectAndStart();
    void loop();
    void runTasks();
    void serviceWrites(const std::vector<short>& revents);
    void teardown();
    void markStarted();

    static void onGlobal(void* data, wl_registry* registry, uint32_t name, const char* interface,
                         uint32_t version);
    static void onGlobalRemove(void* data, wl_registry* registry, uint32_t name);
    void bindDataControl();

    std::thread m_thread;
    int m_wake[2] = {-1, -1};
    std::atomic<bool> m_running = false;
    std::atomic<bool> m_stopping = false;

    mutable std::mutex m_lock; // guards the tasks, the globals and the start flag
    std::condition_variable m_startedChanged;
    bool m_started = false;
    std::vector<std::function<void(Objects&)>> m_tasks;
    WaylandGlobals m_globals;

    // Thread-confined.
    wl_registry* m_registry = nullptr;
    // The start-up sync still awaiting its answer: a compositor that never answers leaves it to us.
    wl_callback* m_sync = nullptr;
    wl_keyboard* m_keyboard = nullptr;
    uint32_t m_extName = 0;
    uint32_t m_wlrName = 0;
    uint32_t m_wlrVersion = 0;
    void* m_dataControlManager = nullptr;
    bool m_dataControlIsExt = false;
    std::unique_ptr<DataControlDevice> m_dataControl;
    std::vector<PendingWrite> m_writes;
    Objects m_objects;

    friend struct WaylandConnectionEvents;
};

template <typename Work>
auto WaylandConnection::call(Work work, int timeoutMs)
    -> std::optional<std::invoke_result_t<Work, Objects&>> {
    using Result = std::invoke_result_t<Work, Objects&>;
    if (std::this_thread::get_id() == m_thread.get_id())
        return work(m_objects);
    struct Reply {
        std::mutex lock;
        std::condition_variable done;
        std::optional<Result> value;
    };
    auto reply = std::make_shared<Reply>();
    const bool posted = post([reply, work = std::move(work)](Objects& objects) mutable {
        Result value = work(objects);
        std::lock_guard guard(reply->lock);
        reply->value = std::move(value);
        reply->done.notify_all();
    });
    if (!posted)
        return std::nullopt;
    std::unique_lock guard(reply->lock);
    reply->done.wait_for(guard, std::chrono::milliseconds(timeoutMs),
                         [&] { return reply->value.has_value(); });
    return reply->value;
}
