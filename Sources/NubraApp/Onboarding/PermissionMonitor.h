#pragma once

#include "NubraPlatform/Clock.h"
#include "NubraPlatform/Desktop.h"

#include <QObject>

#include <optional>

class AppState;
class SelectionService;
class TrustWatcher;

// Watches the accessibility permission, checks with a probe that it really works, moves the state's
// permission phase along (notTrusted, checking, needsRestart, active, done) and asks for selection
// capture to start exactly once when the permission is in force. Main thread only.
//
// The trust answer comes from a TrustWatcher, so no D-Bus wait lands on the GUI thread: each tick asks
// it, and the phase moves when its answer is in. Until the first answer has arrived, start() has only
// armed the poll: the start-up line is written and capture started (if trusted) when that answer comes
// in, and ticks before it do nothing.
class PermissionMonitor final : public QObject {
    Q_OBJECT

public:
    static constexpr int tickMs = 1000;
    static constexpr int closeDelayMs = 1800;

    // Everything given must outlive the monitor; the state handed to start() as well.
    PermissionMonitor(const Desktop& desktop, SelectionService& service, TrustWatcher& trust,
                      QObject* parent = nullptr);
    ~PermissionMonitor() override;

    // Logs, starts capture if already trusted, and starts the one-second poll. Runs once.
    void start(AppState& state);
    // Emits startCapture() the first time only: the application holds one monitor, so once per process.
    void startSelectionMonitor(AppState& state);
    // An explanation has completed: in phase active the onboarding is done, and the permission window
    // closes shortly after. Anything else is ignored.
    void notifyFirstGloss(AppState& state);

    bool isStarted() const { return m_started; }

signals:
    // Wire and start selection capture (hot-key callback, hot key in hotkey mode, the selection monitor).
    void startCapture();
    // The permission came into force while the onboarding window guided the user to it: the window
    // shows so, without taking the focus from the application the user went to select text in.
    void permissionGranted();
    void closePermissionWindow();

private:
    void begin();
    void scheduleTick();
    void tick();
    // The phase table, on the answer that just came in.
    void step();
    void runSelfCheck();

    Desktop m_desktop;
    SelectionService& m_service;
    TrustWatcher& m_trust;
    AppState* m_state = nullptr;
    bool m_started = false;
    bool m_begun = false;
    bool m_selectionStarted = false;
    // A probe whose number is no longer current answered too late and is dropped.
    quint64 m_probeGeneration = 0;
    std::optional<Clock::TaskId> m_tick;
    std::optional<Clock::TaskId> m_close;
};
