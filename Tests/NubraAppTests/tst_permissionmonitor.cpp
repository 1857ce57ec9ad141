#include "AppTestKit.h"
#include "NubraApp/Capture/SelectionService.h"
#include "NubraApp/Onboarding/PermissionMonitor.h"

#include <QSignalSpy>

class PermissionMonitorTest : public QObject {
    Q_OBJECT

    std::unique_ptr<AppTestKit> kit;
    FakeDesktop* fake = nullptr;
    AppState* state = nullptr;
    std::unique_ptr<SelectionService> service;
    std::unique_ptr<PermissionMonitor> monitor;
    int captureStarts = 0;
    int windowCloses = 0;
    int permissionWindowsShown = 0;

    PermissionPhase phase() const { return state->settings().permissionPhase(); }
    // One poll interval, then whatever background work it started.
    void tick() {
        fake->clock.advance(PermissionMonitor::tickMs);
        fake->tasks.drain();
    }
    // Runs the trust query queued last, then hands its answer to the main thread.
    void answerTrust() {
        fake->tasks.runAt(fake->tasks.queued() - 1);
        fake->tasks.runAt(fake->tasks.queued() - 1);
    }
    // The probe's next answer: the focus query's status decides it.
    void probeAnswers(AXSelfCheckResult result) {
        fake->accessibility.queueStatuses(
            {result == AXSelfCheckResult::ok ? FocusQuery::noValue : FocusQuery::apiDisabled});
    }

private slots:
    void init() {
        kit = std::make_unique<AppTestKit>();
        fake = &kit->fake;
        state = kit->state.get();
        service = std::make_unique<SelectionService>(kit->desktop);
        monitor = std::make_unique<PermissionMonitor>(kit->desktop, *service, kit->trust);
        captureStarts = 0;
        windowCloses = 0;
        permissionWindowsShown = 0;
        connect(monitor.get(), &PermissionMonitor::startCapture, this, [this]() { ++captureStarts; });
        connect(monitor.get(), &PermissionMonitor::closePermissionWindow, this, [this]() { ++windowCloses; });
        connect(monitor.get(), &PermissionMonitor::permissionGranted, this,
                [this]() { ++permissionWindowsShown; });
    }
    void cleanup() {
        monitor.reset();
        service.reset();
        kit.reset();
    }

    // The screens that go with it are seen on the desktop (app_desktop).
    void withoutPermissionCaptureWaitsForTheSwitch() {
        fake->accessibility.trusted = false;
        monitor->start(*state);
        tick();
        QCOMPARE(phase(), PermissionPhase::notTrusted);
        QCOMPARE(captureStarts, 0);
        fake->accessibility.trusted = true;
        probeAnswers(AXSelfCheckResult::ok);
        tick();
        QCOMPARE(phase(), PermissionPhase::active);
        QCOMPARE(captureStarts, 1);
    }

    void staleGrantNeedsRestartUntilToggled() {
        probeAnswers(AXSelfCheckResult::apiDisabled);
        monitor->start(*state);
        fake->tasks.drain();
        QCOMPARE(captureStarts, 1); // at once, before the probe has answered
        QCOMPARE(phase(), PermissionPhase::needsRestart);
        QCOMPARE(permissionWindowsShown, 0);

        // While the grant stays on, the probe is repeated every tick.
        probeAnswers(AXSelfCheckResult::apiDisabled);
        tick();
        QCOMPARE(phase(), PermissionPhase::needsRestart);
        QCOMPARE(fake->accessibility.focusQueries, 2);

        fake->accessibility.trusted = false; // toggled off ...
        tick();
        tick();
        QCOMPARE(phase(), PermissionPhase::needsRestart);
        QCOMPARE(fake->accessibility.focusQueries, 2); // no probe without the grant
        fake->accessibility.trusted = true;            // ... and on again
        probeAnswers(AXSelfCheckResult::ok);
        tick();
        QCOMPARE(phase(), PermissionPhase::active);
        QCOMPARE(permissionWindowsShown, 1);
        QCOMPARE(captureStarts, 1);
        monitor->startSelectionMonitor(*state);
        QCOMPARE(captureStarts, 1);
    }

    void lateProbeResultIsDropped() {
        monitor->start(*state);
        answerTrust(); // phase checking, probe 1 queued
        QCOMPARE(phase(), PermissionPhase::checking);
        QCOMPARE(fake->tasks.queued(), 1);

        // The phase moves on elsewhere; the next tick starts probe 2 while probe 1 still runs.
        state->settings().setPermissionPhase(PermissionPhase::needsRestart);
        fake->clock.advance(PermissionMonitor::tickMs);
        answerTrust();
        QCOMPARE(phase(), PermissionPhase::checking);
        QCOMPARE(fake->tasks.queued(), 2);
        probeAnswers(AXSelfCheckResult::apiDisabled);
        fake->tasks.runAt(0); // probe 1 answers apiDisabled, later than probe 2 ...
        fake->tasks.drain();  // ... which answers ok
        QCOMPARE(phase(), PermissionPhase::active);

        // A probe that answers after the phase left checking changes nothing.
        state->settings().setPermissionPhase(PermissionPhase::needsRestart);
        fake->clock.advance(PermissionMonitor::tickMs);
        answerTrust();
        QCOMPARE(phase(), PermissionPhase::checking);
        state->settings().setPermissionPhase(PermissionPhase::needsRestart);
        fake->tasks.drain();
        QCOMPARE(phase(), PermissionPhase::needsRestart);
    }

    void startTwiceHasNoFurtherEffect() {
        monitor->start(*state);
        fake->tasks.drain();
        monitor->start(*state);
        fake->tasks.drain();
        QCOMPARE(kit->log.messages().count(), 1); // the start line, once
        QCOMPARE(permissionWindowsShown, 1);
        QCOMPARE(fake->clock.pendingTasks(), 1); // one poll
        QCOMPARE(captureStarts, 1);
    }

    void firstGlossFinishesOnboarding() {
        monitor->notifyFirstGloss(*state); // not yet active: ignored
        QCOMPARE(phase(), PermissionPhase::notTrusted);

        monitor->start(*state);
        fake->tasks.drain();
        QCOMPARE(phase(), PermissionPhase::active);
        // From here on trust is no longer asked.
        const int queries = fake->tasks.backgroundRuns();
        tick();
        QCOMPARE(fake->tasks.backgroundRuns(), queries);
        monitor->notifyFirstGloss(*state);
        QCOMPARE(phase(), PermissionPhase::done);
        monitor->notifyFirstGloss(*state); // a second explanation changes nothing
        fake->clock.advance(PermissionMonitor::closeDelayMs - 1);
        QCOMPARE(windowCloses, 0);
        fake->clock.advance(1);
        QCOMPARE(windowCloses, 1);
        fake->clock.advance(10 * PermissionMonitor::closeDelayMs);
        QCOMPARE(windowCloses, 1);
        QCOMPARE(phase(), PermissionPhase::done);
    }

    void windowStaysWhenPhaseLeavesDone() {
        state->settings().setPermissionPhase(PermissionPhase::active);
        monitor->notifyFirstGloss(*state);
        state->settings().setPermissionPhase(PermissionPhase::active);
        fake->clock.advance(PermissionMonitor::closeDelayMs);
        QCOMPARE(windowCloses, 0);
    }
};

QTEST_GUILESS_MAIN(PermissionMonitorTest)
#include "tst_permissionmonitor.moc"
