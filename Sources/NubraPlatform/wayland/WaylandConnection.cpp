#include "NubraPlatform/wayland/WaylandConnection.h"

#include "NubraPlatform/wayland/DataControlDevice.h"

#include "ext-data-control-v1-client.h"
#include "virtual-keyboard-unstable-v1-client.h"
#include "wlr-data-control-unstable-v1-client.h"

#include <wayland-client.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

using Clock = std::chrono::steady_clock;

// The listeners of the objects the connection itself owns (registry, seat, keyboard, start-up syncs).
struct WaylandConnectionEvents {
    static void seatCapabilities(void* data, wl_seat* seat, uint32_t capabilities) {
        auto* self = static_cast<WaylandConnection*>(data);
        const bool hasKeyboard = capabilities & WL_SEAT_CAPABILITY_KEYBOARD;
        if (hasKeyboard && !self->m_keyboard) {
            self->m_keyboard = wl_seat_get_keyboard(seat);
            wl_keyboard_add_listener(self->m_keyboard, &keyboardListener, self);
        } else if (!hasKeyboard && self->m_keyboard) {
            wl_keyboard_release(self->m_keyboard);
            self->m_keyboard = nullptr;
        }
    }
    static void seatName(void*, wl_seat*, const char*) {}

    static void keymap(void* data, wl_keyboard*, uint32_t format, int32_t fd, uint32_t size) {
        auto* self = static_cast<WaylandConnection*>(data);
        if (format == WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1 && size > 0 &&
            size <= WaylandConnection::maxKeymapBytes) {
            void* mapped = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
            if (mapped != MAP_FAILED) {
                // The text ends with a NUL that is not part of it.
                self->m_objects.keymap = QByteArray(static_cast<const char*>(mapped),
                                                    qstrnlen(static_cast<const char*>(mapped), size));
                munmap(mapped, size);
            }
        }
        close(fd);
    }
    static void enter(void*, wl_keyboard*, uint32_t, wl_surface*, wl_array*) {}
    static void leave(void*, wl_keyboard*, uint32_t, wl_surface*) {}
    static void key(void*, wl_keyboard*, uint32_t, uint32_t, uint32_t, uint32_t) {}
    static void modifiers(void*, wl_keyboard*, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) {}
    static void repeatInfo(void*, wl_keyboard*, int32_t, int32_t) {}

    // First sync: every global is announced, so the preferred data-control can be chosen. Second: the
    // selections present at binding have arrived.
    static void firstSync(void* data, wl_callback* callback, uint32_t) {
        wl_callback_destroy(callback);
        auto* self = static_cast<WaylandConnection*>(data);
        self->bindDataControl();
        self->m_sync = wl_display_sync(self->m_objects.display);
        wl_callback_add_listener(self->m_sync, &secondSyncListener, self);
    }
    static void secondSync(void* data, wl_callback* callback, uint32_t) {
        wl_callback_destroy(callback);
        auto* self = static_cast<WaylandConnection*>(data);
        self->m_sync = nullptr;
        if (self->m_dataControl)
            self->m_dataControl->initialSelectionsReceived();
        self->markStarted();
    }

    static constexpr wl_seat_listener seatListener{seatCapabilities, seatName};
    static constexpr wl_keyboard_listener keyboardListener{keymap, enter, leave, key, modifiers, repeatInfo};
    static constexpr wl_callback_listener firstSyncListener{firstSync};
    static constexpr wl_callback_listener secondSyncListener{secondSync};
    static constexpr wl_registry_listener registryListener{WaylandConnection::onGlobal,
                                                           WaylandConnection::onGlobalRemove};
};

WaylandConnection::WaylandConnection() {
    if (qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") || pipe2(m_wake, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    m_thread = std::thread([this] { run(); });
    std::unique_lock guard(m_lock);
    m_startedChanged.wait_for(guard, std::chrono::milliseconds(startTimeoutMs), [this] { return m_started; });
}

WaylandConnection::~WaylandConnection() {
    m_stopping = true;
    if (m_thread.joinable()) {
        const char byte = 0;
        [[maybe_unused]] const ssize_t ignored = write(m_wake[1], &byte, 1);
        m_thread.join();
    }
    for (int fd : m_wake) {
        if (fd >= 0)
            close(fd);
    }
}

WaylandGlobals WaylandConnection::globals() const {
    std::lock_guard guard(m_lock);
    return m_globals;
}

bool WaylandConnection::post(std::function<void(Objects&)> task) {
    if (!m_running)
        return false;
    {
        std::lock_guard guard(m_lock);
        m_tasks.push_back(std::move(task));
    }
    const char byte = 0;
    [[maybe_unused]] const ssize_t ignored = write(m_wake[1], &byte, 1);
    return true;
}

void WaylandConnection::serve(int fd, QByteArray bytes) {
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    m_writes.push_back({fd, std::move(bytes), 0, Clock::now() + std::chrono::milliseconds(serveTimeoutMs)});
}

void WaylandConnection::markStarted() {
    std::lock_guard guard(m_lock);
    m_started = true;
    m_startedChanged.notify_all();
}

void WaylandConnection::run() {
    // A reader that closes its end before we finished writing must not end the process.
    sigset_t pipeSignal;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);

    if (connectAndStart()) {
        m_running = true;
        loop();
        m_running = false;
    }
    teardown();
    markStarted();
}

bool WaylandConnection::connectAndStart() {
    m_objects.display = wl_display_connect(nullptr);
    if (!m_objects.display)
        return false;
    m_registry = wl_display_get_registry(m_objects.display);
    wl_registry_add_listener(m_registry, &WaylandConnectionEvents::registryListener, this);
    m_sync = wl_display_sync(m_objects.display);
    wl_callback_add_listener(m_sync, &WaylandConnectionEvents::firstSyncListener, this);
    return true;
}

void WaylandConnection::onGlobal(void* data, wl_registry* registry, uint32_t name, const char* interface,
                                 uint32_t version) {
    auto* self = static_cast<WaylandConnection*>(data);
    const std::string_view found(interface);
    if (found == wl_seat_interface.name && !self->m_objects.seat) {
        self->m_objects.seat = static_cast<wl_seat*>(
            wl_registry_bind(registry, name, &wl_seat_interface, std::min(version, 5u)));
        wl_seat_add_listener(self->m_objects.seat, &WaylandConnectionEvents::seatListener, self);
    } else if (found == zwp_virtual_keyboard_manager_v1_interface.name && !self->m_objects.virtualKeyboards) {
        self->m_objects.virtualKeyboards = static_cast<zwp_virtual_keyboard_manager_v1*>(
            wl_registry_bind(registry, name, &zwp_virtual_keyboard_manager_v1_interface, 1));
        std::lock_guard guard(self->m_lock);
        self->m_globals.virtualKeyboard = true;
    } else if (found == ext_data_control_manager_v1_interface.name) {
        self->m_extName = name;
        std::lock_guard guard(self->m_lock);
        self->m_globals.extDataControl = true;
    } else if (found == zwlr_data_control_manager_v1_interface.name) {
        self->m_wlrName = name;
        self->m_wlrVersion = version;
        std::lock_guard guard(self->m_lock);
        self->m_globals.wlrDataControl = version >= 2; // version 1 has no primary selection
    }
}

void WaylandConnection::onGlobalRemove(void*, wl_registry*, uint32_t) {
    // A seat or manager that goes away makes the objects we made from it inert: reads then answer
    // nothing, which is what they answer without it.
}

void WaylandConnection::bindDataControl() {
    if (!m_objects.seat)
        return;
    DataControlDevice::Protocol protocol;
    if (m_extName != 0) {
        m_dataControlManager =
            wl_registry_bind(m_registry, m_extName, &ext_data_control_manager_v1_interface, 1);
        protocol = DataControlDevice::Protocol::ext;
    } else if (m_wlrName != 0 && m_wlrVersion >= 2) {
        m_dataControlManager =
            wl_registry_bind(m_registry, m_wlrName, &zwlr_data_control_manager_v1_interface, 2);
        protocol = DataControlDevice::Protocol::wlr;
    } else {
        return;
    }
    m_dataControlIsExt = protocol == DataControlDevice::Protocol::ext;
    m_dataControl =
        std::make_unique<DataControlDevice>(*this, m_dataControlManager, protocol, m_objects.seat);
    m_objects.dataControl = m_dataControl.get();
}

void WaylandConnection::loop() {
    wl_display* display = m_objects.display;
    const int socket = wl_display_get_fd(display);
    std::vector<pollfd> fds;
    while (!m_stopping) {
        while (wl_display_prepare_read(display) != 0) {
            if (wl_display_dispatch_pending(display) < 0)
                return;
        }
        const bool flushed = wl_display_flush(display) >= 0 || errno == EAGAIN;
        if (!flushed) {
            wl_display_cancel_read(display);
            return;
        }
        fds.assign({{socket, POLLIN, 0}, {m_wake[0], POLLIN, 0}});
        int timeoutMs = -1;
        const Clock::time_point now = Clock::now();
        for (const PendingWrite& write : m_writes) {
            fds.push_back({write.fd, POLLOUT, 0});
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(write.deadline - now).count();
            timeoutMs = timeoutMs < 0 ? int(std::max<qint64>(left, 0))
                                      : std::min(timeoutMs, int(std::max<qint64>(left, 0)));
        }
        if (poll(fds.data(), fds.size(), timeoutMs) < 0 && errno != EINTR) {
            wl_display_cancel_read(display);
            return;
        }
        if (fds[0].revents & (POLLIN | POLLERR | POLLHUP)) {
            if (wl_display_read_events(display) < 0)
                return;
        } else {
            wl_display_cancel_read(display);
        }
        if (wl_display_dispatch_pending(display) < 0)
            return;
        std::vector<short> writeEvents;
        for (size_t i = 2; i < fds.size(); ++i)
            writeEvents.push_back(fds[i].revents);
        serviceWrites(writeEvents);
        if (fds[1].revents & POLLIN) {
            char drain[64];
            while (read(m_wake[0], drain, sizeof drain) > 0) {
            }
            runTasks();
        }
    }
}

void WaylandConnection::runTasks() {
    std::vector<std::function<void(Objects&)>> tasks;
    {
        std::lock_guard guard(m_lock);
        tasks.swap(m_tasks);
    }
    for (auto& task : tasks)
        task(m_objects);
}

void WaylandConnection::serviceWrites(const std::vector<short>& revents) {
    const Clock::time_point now = Clock::now();
    for (size_t i = 0; i < m_writes.size();) {
        PendingWrite& pending = m_writes[i];
        bool done = now >= pending.deadline;
        if (!done && i < revents.size() && revents[i] != 0) {
            const ssize_t written = write(pending.fd, pending.bytes.constData() + pending.written,
                                          pending.bytes.size() - pending.written);
            if (written > 0)
                pending.written += written;
            done = (written < 0 && errno != EAGAIN) || pending.written == pending.bytes.size();
        }
        if (done) {
            close(pending.fd);
            m_writes.erase(m_writes.begin() + qsizetype(i));
        } else {
            ++i;
        }
    }
}

void WaylandConnection::teardown() {
    for (const PendingWrite& pending : m_writes)
        close(pending.fd);
    m_writes.clear();
    {
        std::lock_guard guard(m_lock);
        m_tasks.clear();
    }
    m_objects.dataControl = nullptr;
    m_dataControl.reset();
    if (m_dataControlManager) {
        if (m_dataControlIsExt)
            ext_data_control_manager_v1_destroy(
                static_cast<ext_data_control_manager_v1*>(m_dataControlManager));
        else
            zwlr_data_control_manager_v1_destroy(
                static_cast<zwlr_data_control_manager_v1*>(m_dataControlManager));
    }
    if (m_objects.virtualKeyboard)
        zwp_virtual_keyboard_v1_destroy(m_objects.virtualKeyboard);
    if (m_objects.virtualKeyboards)
        zwp_virtual_keyboard_manager_v1_destroy(m_objects.virtualKeyboards);
    if (m_keyboard)
        wl_keyboard_release(m_keyboard);
    if (m_objects.seat)
        wl_seat_destroy(m_objects.seat);
    if (m_sync)
        wl_callback_destroy(m_sync);
    m_sync = nullptr;
    if (m_registry)
        wl_registry_destroy(m_registry);
    if (m_objects.display) {
        wl_display_flush(m_objects.display);
        wl_display_disconnect(m_objects.display);
    }
    m_objects = {};
}
