#pragma once

#include "NubraPlatform/wayland/CompositorWindows.h"

#include <QDBusConnection>
#include <QString>
#include <QTemporaryFile>
#include <QThread>

#include <condition_variable>
#include <mutex>
#include <optional>

class KWinWindowReceiver;

// The active window as KWin knows it. KWin tells window positions to its own scripts only, so we load
// one into it (over D-Bus, org.kde.KWin /Scripting) that reports the active window, and each change of
// its geometry, back to us over D-Bus. Asking then costs nothing; the first ask loads the script and
// waits up to `timeoutMs` for its first report. Safe from any thread; reports arrive on a thread of
// our own, so a busy main thread does not hold them up.
class KWinWindows {
public:
    static constexpr int timeoutMs = CompositorWindows::timeoutMs;

    KWinWindows();
    ~KWinWindows();
    KWinWindows(const KWinWindows&) = delete;
    KWinWindows& operator=(const KWinWindows&) = delete;

    // Whether KWin's scripting interface is on the session bus: window positions can be learnt.
    static bool offered();

    std::optional<CompositorWindows::Window> activeWindow();

private:
    friend class KWinWindowReceiver;
    enum class State { idle, loading, running, failed };

    bool load();
    void unload();
    void received(std::optional<CompositorWindows::Window> window);
    void kwinGone();

    QDBusConnection m_bus;
    QThread m_thread;
    KWinWindowReceiver* m_receiver = nullptr;
    QTemporaryFile m_script;
    QString m_pluginName;

    std::mutex m_lock;
    std::condition_variable m_reported;
    State m_state = State::idle;
    bool m_hasReport = false;
    std::optional<CompositorWindows::Window> m_report;
};
