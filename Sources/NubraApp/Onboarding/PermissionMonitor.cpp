#include "NubraApp/Onboarding/PermissionMonitor.h"

#include "NubraApp/Capture/SelectionService.h"
#include "NubraApp/Foundation/AppState.h"
#include "NubraCore/Support/DebugLog.h"
#include "NubraPlatform/TaskRunner.h"
#include "NubraPlatform/TrustWatcher.h"

#include <QPointer>

namespace {

QString phaseName(PermissionPhase phase) {
    switch (phase) {
    case PermissionPhase::notTrusted:
        return QStringLiteral("notTrusted");
    case PermissionPhase::checking:
        return QStringLiteral("checking");
    case PermissionPhase::needsRestart:
        return QStringLiteral("needsRestart");
    case PermissionPhase::active:
        return QStringLiteral("active");
    case PermissionPhase::done:
        return QStringLiteral("done");
    }
    return {};
}

} // namespace

PermissionMonitor::PermissionMonitor(const Desktop& desktop, SelectionService& service, TrustWatcher& trust,
                                     QObject* parent)
    : QObject(parent), m_desktop(desktop), m_service(service), m_trust(trust) {
    // Each poll asks the watcher, and the phase moves when the answer is in, not a tick later.
    connect(&m_trust, &TrustWatcher::answered, this, [this]() {
        if (!m_started)
            return;
        if (!m_begun)
            begin();
        else
            step();
    });
}

PermissionMonitor::~PermissionMonitor() {
    for (const std::optional<Clock::TaskId>& task : {m_tick, m_close}) {
        if (task)
            m_desktop.clock.cancel(*task);
    }
}

void PermissionMonitor::start(AppState& state) {
    if (m_started)
        return;
    m_started = true;
    m_state = &state;
    if (m_trust.isTrusted().has_value())
        begin();
    else
        m_trust.refresh();
    scheduleTick();
}

void PermissionMonitor::begin() {
    m_begun = true;
    const bool trusted = m_trust.isTrusted().value_or(false);
    const AppSettings& settings = m_state->settings();
    nbDebug(QStringLiteral("perm: start isTrusted=%1 phase=%2 trigger=%3")
                .arg(trusted ? QStringLiteral("true") : QStringLiteral("false"),
                     phaseName(settings.permissionPhase()), rawValue(settings.triggerMode())));
    if (!trusted)
        return;
    // Capture starts before the probe answers; the probe only decides the phase and the window.
    startSelectionMonitor(*m_state);
    m_state->settings().setPermissionPhase(PermissionPhase::checking);
    runSelfCheck();
}

void PermissionMonitor::scheduleTick() {
    QPointer<PermissionMonitor> self(this);
    m_tick = m_desktop.clock.schedule(tickMs, [self]() {
        if (!self)
            return;
        self->m_tick.reset();
        self->tick();
        // Once the permission is in force nothing is watched any more, so the poll ends there and an
        // idle Nubra has no timer waking it.
        const PermissionPhase phase = self->m_state->settings().permissionPhase();
        if (phase != PermissionPhase::active && phase != PermissionPhase::done)
            self->scheduleTick();
    });
}

void PermissionMonitor::tick() {
    if (!m_begun)
        return; // the first answer is still on its way
    const PermissionPhase phase = m_state->settings().permissionPhase();
    if (phase == PermissionPhase::active || phase == PermissionPhase::done)
        return; // trust is no longer watched
    // While checking the answer is ignored, but asking keeps the watcher's answer current.
    m_trust.refresh();
}

void PermissionMonitor::step() {
    AppSettings& settings = m_state->settings();
    const PermissionPhase phase = settings.permissionPhase();
    if (phase != PermissionPhase::notTrusted && phase != PermissionPhase::needsRestart)
        return;
    if (!m_trust.isTrusted().value_or(false))
        return;
    settings.setPermissionPhase(PermissionPhase::checking);
    runSelfCheck();
}

void PermissionMonitor::runSelfCheck() {
    const quint64 generation = ++m_probeGeneration;
    QPointer<PermissionMonitor> self(this);
    SelectionService* service = &m_service;
    TaskRunner* tasks = &m_desktop.tasks;
    // The probe blocks for up to 1.8 s.
    tasks->runInBackground([self, service, tasks, generation]() {
        const AXSelfCheckResult result = service->selfCheck();
        tasks->runOnMain([self, generation, result]() {
            if (!self || generation != self->m_probeGeneration)
                return;
            AppState& state = *self->m_state;
            if (state.settings().permissionPhase() != PermissionPhase::checking)
                return;
            if (result == AXSelfCheckResult::apiDisabled) {
                state.settings().setPermissionPhase(PermissionPhase::needsRestart);
                return;
            }
            state.settings().setPermissionPhase(PermissionPhase::active);
            emit self->permissionGranted();
            self->startSelectionMonitor(state);
        });
    });
}

void PermissionMonitor::startSelectionMonitor(AppState&) {
    if (m_selectionStarted)
        return;
    m_selectionStarted = true;
    emit startCapture();
}

void PermissionMonitor::notifyFirstGloss(AppState& state) {
    if (state.settings().permissionPhase() != PermissionPhase::active)
        return;
    state.settings().setPermissionPhase(PermissionPhase::done);
    QPointer<PermissionMonitor> self(this);
    AppState* target = &state;
    m_close = m_desktop.clock.schedule(closeDelayMs, [self, target]() {
        if (!self)
            return;
        self->m_close.reset();
        if (target->settings().permissionPhase() == PermissionPhase::done)
            emit self->closePermissionWindow();
    });
}
