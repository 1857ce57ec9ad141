#include "NubraApp/Capture/BubbleHost.h"
#include "NubraApp/Capture/BubblePlacement.h"
#include "NubraApp/Capture/CardHost.h"
#include "NubraApp/Capture/SelectionMonitor.h"
#include "NubraCore/Capture/HotkeyCombo.h"
#include "NubraPlatform/fake/FakeDesktop.h"
#include "TestSupport/DebugLogCapture.h"

#include <QCoreApplication>
#include <QTest>

namespace {

constexpr quint64 bubbleWindow = 7;
constexpr quint64 cardWindow = 9;

// Both record what the monitor does to the screen, in order, in one shared journal.
struct FakeBubble final : BubbleHost {
    explicit FakeBubble(QStringList& journal) : journal(journal) {}
    QStringList& journal;
    std::optional<QPointF> origin;
    std::function<void()> onClick;
    int shows = 0;

    void showAt(const QPointF& at, std::function<void()> click) override {
        ++shows;
        origin = at;
        onClick = std::move(click);
        journal << QStringLiteral("bubble");
    }
    void hide() override {
        origin.reset();
        journal << QStringLiteral("hide");
    }
    bool isVisible() const override { return origin.has_value(); }
    std::optional<quint64> windowId() const override {
        return origin ? std::optional<quint64>(bubbleWindow) : std::nullopt;
    }
};

struct FakeCard final : CardHost {
    explicit FakeCard(QStringList& journal) : journal(journal) {}
    QStringList& journal;
    bool visible = false;
    void close() override {
        visible = false;
        journal << QStringLiteral("close");
    }
    bool isVisible() const override { return visible; }
    std::optional<quint64> windowId() const override { return cardWindow; }
};

SelectionChange changed(SelectionChange::Source source = SelectionChange::Source::accessibility,
                        bool empty = false, qint64 processId = 1) {
    return {source, empty, processId};
}

MouseEvent release(quint64 modifiers = 0, int clicks = 1, MouseButton button = MouseButton::left) {
    MouseEvent event;
    event.button = button;
    event.modifierFlags = modifiers;
    event.clickCount = clicks;
    return event;
}

} // namespace

class SelectionMonitorTest : public QObject {
    Q_OBJECT

    std::unique_ptr<FakeDesktop> fake;
    std::unique_ptr<SelectionService> service;
    QStringList journal;
    std::unique_ptr<FakeBubble> bubble;
    std::unique_ptr<FakeCard> card;
    std::unique_ptr<SelectionMonitor> monitor;
    DebugLogCapture log; // keeps the lines out of the machine's log
    QList<SelectionSnapshot> triggered;
    bool gateOpen = true;
    int gateAsked = 0;

    void start(TriggerMode mode) {
        monitor->start(
            mode, 3,
            [this]() {
                ++gateAsked;
                return gateOpen;
            },
            [this](const SelectionSnapshot& snapshot) {
                journal << QStringLiteral("trigger");
                triggered << snapshot;
            });
    }
    // Lets the debounce run out and the background read finish.
    void settle() {
        fake->clock.advance(SelectionMonitor::debounceMs);
        fake->tasks.drain();
    }
    void releaseAndSettle(quint64 modifiers = 0, int clicks = 1) {
        fake->eventMonitors.globalMouseUp(release(modifiers, clicks));
        settle();
    }
    SelectionSnapshot expectedSnapshot() const {
        return {QStringLiteral("quick"), QStringLiteral("he "), QStringLiteral(" br"),
                QStringLiteral("Editor"), QRectF(100, 680, 50, 20)};
    }

private slots:
    void init() {
        fake = std::make_unique<FakeDesktop>();
        service = std::make_unique<SelectionService>(fake->desktop());
        journal = {};
        bubble = std::make_unique<FakeBubble>(journal);
        card = std::make_unique<FakeCard>(journal);
        monitor = std::make_unique<SelectionMonitor>(fake->desktop(), *service, *bubble, *card);
        triggered.clear();
        gateOpen = true;
        gateAsked = 0;
        fake->frontApplications.front =
            FrontApp{QStringLiteral("Editor"), QStringLiteral("org.example.Editor"), 1};
        auto element = FakeElement::textArea(QStringLiteral("The quick brown fox"), 4, 5);
        element->bounds = QRectF(100, 200, 50, 20);
        fake->accessibility.focused = element;
    }
    void cleanup() { monitor.reset(); }

    void releaseCapturesAfterDebounceAndShowsBubble() {
        start(TriggerMode::onSelection);
        fake->eventMonitors.globalMouseUp(release());
        fake->clock.advance(200);
        fake->eventMonitors.globalMouseUp(release(0, 2)); // a burst: 0.3 s counts from its last release
        fake->clock.advance(SelectionMonitor::debounceMs - 1);
        QCOMPARE(gateAsked, 0);
        fake->clock.advance(1);
        QCOMPARE(gateAsked, 1);
        QCOMPARE(fake->tasks.queued(), 1); // the read waits for a background thread
        QVERIFY(journal.isEmpty());
        fake->tasks.drain();

        QCOMPARE(journal, (QStringList{QStringLiteral("close"), QStringLiteral("bubble")}));
        QCOMPARE(monitor->pendingSnapshot(), expectedSnapshot());
        // Placed in window coordinates: the selection's top is y 700 from the bottom of the 900-high screen.
        QVERIFY(qAbs(bubble->origin->x() - 127.6) < 1e-9);
        QCOMPARE(bubble->origin->y(), 900.0 - 705 - 44);
        QVERIFY(triggered.isEmpty());

        // Clicking the bubble hides it and hands the snapshot on; the snapshot stays pending.
        bubble->onClick();
        QCOMPARE(journal.mid(2), (QStringList{QStringLiteral("hide"), QStringLiteral("trigger")}));
        QCOMPARE(triggered, QList<SelectionSnapshot>{expectedSnapshot()});
        QVERIFY(monitor->pendingSnapshot());
    }

    void triggerModes_data() {
        QTest::addColumn<TriggerMode>("mode");
        QTest::addColumn<OptionModifier>("key");
        QTest::addColumn<quint64>("modifiers");
        QTest::addColumn<int>("clicks");
        QTest::addColumn<bool>("captures");
        const quint64 alt = HotkeyCombo::optionFlag;
        const quint64 super = HotkeyCombo::commandFlag;
        const OptionModifier altKey = OptionModifier::option;
        const OptionModifier superKey = OptionModifier::command;
        QTest::newRow("on selection") << TriggerMode::onSelection << altKey << quint64(0) << 1 << true;
        QTest::newRow("option selection without alt")
            << TriggerMode::optionSelection << altKey << (HotkeyCombo::controlFlag | super) << 2 << false;
        QTest::newRow("option selection with alt and shift")
            << TriggerMode::optionSelection << altKey << (alt | HotkeyCombo::shiftFlag) << 1 << true;
        QTest::newRow("option selection on super, with super")
            << TriggerMode::optionSelection << superKey << super << 1 << true;
        QTest::newRow("option selection on super, with alt")
            << TriggerMode::optionSelection << superKey << alt << 1 << false;
        QTest::newRow("double-click mode, one click")
            << TriggerMode::doubleClick << altKey << alt << 1 << false;
        QTest::newRow("double-click mode, two clicks")
            << TriggerMode::doubleClick << altKey << quint64(0) << 2 << true;
        QTest::newRow("hot key mode") << TriggerMode::hotkey << altKey << alt << 2 << false;
    }
    void triggerModes() {
        QFETCH(TriggerMode, mode);
        QFETCH(OptionModifier, key);
        QFETCH(quint64, modifiers);
        QFETCH(int, clicks);
        QFETCH(bool, captures);
        start(mode);
        monitor->setOptionModifier(key);
        releaseAndSettle(modifiers, clicks);
        QCOMPARE(gateAsked, captures ? 1 : 0);
        QCOMPARE(bubble->shows, captures ? 1 : 0);
        // A new mode applies from the next release on.
        monitor->setTriggerMode(TriggerMode::onSelection);
        releaseAndSettle();
        QCOMPARE(bubble->shows, captures ? 2 : 1);
    }

    void hotkeyOpensCardWithoutBubble() {
        start(TriggerMode::hotkey);
        monitor->triggerFromHotkey();
        QCOMPARE(gateAsked, 1);
        QVERIFY(triggered.isEmpty());
        fake->tasks.drain();
        QCOMPARE(journal, (QStringList{QStringLiteral("close"), QStringLiteral("trigger")}));
        QCOMPARE(triggered, QList<SelectionSnapshot>{expectedSnapshot()});
        QCOMPARE(bubble->shows, 0);

        // In a selection mode the hot key (`nubra --lookup`) answers a release that is still settling.
        monitor->setTriggerMode(TriggerMode::onSelection);
        fake->eventMonitors.globalMouseUp(release());
        monitor->triggerFromHotkey();
        settle();
        QCOMPARE(triggered.size(), 2);
        QCOMPARE(bubble->shows, 0);
    }

    // A closed gate, a password field in front (probed with the read, never on the main thread) and a
    // selection nobody can read: the bubble goes, and the hot key opens nothing (behind an open gate it
    // takes the bubble of the older selection away).
    void refusals_data() {
        QTest::addColumn<QString>("refusal");
        QTest::addColumn<int>("reads");
        QTest::newRow("gate closed") << u"gate"_qs << 0;
        QTest::newRow("password field") << u"password"_qs << 1;
        QTest::newRow("nothing readable") << u"nothing"_qs << 1;
    }
    void refusals() {
        QFETCH(QString, refusal);
        QFETCH(int, reads);
        start(TriggerMode::onSelection);
        releaseAndSettle();
        QVERIFY(bubble->isVisible());
        if (refusal == u"gate") {
            gateOpen = false;
        } else if (refusal == u"password") {
            auto field = FakeElement::textArea(QStringLiteral("hunter2"), 0, 7);
            field->roleName = QStringLiteral("AXSecureTextField");
            fake->accessibility.focused = field;
        } else {
            fake->accessibility.focused.reset();
        }
        const QStringList before = journal;
        monitor->triggerFromHotkey();
        fake->tasks.drain();
        QCOMPARE(journal, refusal == u"gate" ? before : before + QStringList{u"hide"_qs});
        QVERIFY(triggered.isEmpty());

        const int runs = fake->tasks.backgroundRuns();
        const int queries = fake->accessibility.focusQueries;
        fake->eventMonitors.globalMouseUp(release());
        fake->clock.advance(SelectionMonitor::debounceMs);
        QCOMPARE(fake->accessibility.focusQueries, queries);
        fake->tasks.drain();
        QVERIFY(!bubble->isVisible());
        QCOMPARE(fake->tasks.backgroundRuns(), runs + reads);
    }

    // Where the accessibility interface has nothing: a plain click must not bring back an old PRIMARY
    // selection, while a drag that changed PRIMARY, and a double-click in an application that keeps
    // PRIMARY to itself, are read.
    void gesturesDecideTheFallbacks() {
        start(TriggerMode::onSelection);
        fake->accessibility.focused.reset();
        fake->primarySelection.current = QStringLiteral("old");
        fake->primarySelection.ownerChange = 500;
        fake->keyboard.copiedText = QStringLiteral("copied");
        MouseEvent click = release();
        click.pressTime = 1000;
        fake->eventMonitors.globalMouseUp(click);
        settle();
        QVERIFY(!bubble->isVisible());
        QCOMPARE(fake->keyboard.copies, 0);

        MouseEvent drag = click;
        drag.dragged = true;
        fake->primarySelection.current = QStringLiteral("new");
        fake->primarySelection.ownerChange = 1200;
        fake->eventMonitors.globalMouseUp(drag);
        settle();
        QCOMPARE(monitor->pendingSnapshot()->selectedText, QStringLiteral("new"));

        MouseEvent doubleClick = release(0, 2);
        doubleClick.pressTime = 2000;
        fake->eventMonitors.globalMouseUp(doubleClick);
        settle();
        QCOMPARE(monitor->pendingSnapshot()->selectedText, QStringLiteral("copied"));
    }

    // Escape, in Nubra or in the application in front, dismisses bubble and card, but only while one
    // of them is on screen: otherwise the key is the other application's business.
    void escapeDismissesWhatIsShown() {
        start(TriggerMode::onSelection);
        const KeyEvent escape{SelectionMonitor::escapeKeyCode, 0};
        fake->eventMonitors.globalKeyDown(escape);
        QVERIFY(journal.isEmpty());

        releaseAndSettle();
        journal.clear();
        fake->eventMonitors.localKeyDown({52, 0});
        QVERIFY(journal.isEmpty());
        fake->eventMonitors.localKeyDown(escape);
        QCOMPARE(journal, (QStringList{QStringLiteral("hide"), QStringLiteral("close")}));

        card->visible = true; // a card opened from the bubble, never clicked
        journal.clear();
        fake->eventMonitors.globalKeyDown(escape);
        QCOMPARE(journal, QStringList{QStringLiteral("close")});

        monitor->stop();
        card->visible = true;
        journal.clear();
        fake->eventMonitors.globalKeyDown(escape);
        QVERIFY(journal.isEmpty());
    }

    void onlyTheNewestReadCounts() {
        start(TriggerMode::onSelection);
        auto element = std::static_pointer_cast<FakeElement>(fake->accessibility.focused);
        fake->eventMonitors.globalMouseUp(release());
        fake->clock.advance(SelectionMonitor::debounceMs);
        fake->eventMonitors.globalMouseUp(release());
        fake->clock.advance(SelectionMonitor::debounceMs);
        QCOMPARE(fake->tasks.queued(), 2); // two reads under way, the older one slow

        element->selected = QStringLiteral("brown");
        element->range = TextRange{10, 5};
        fake->tasks.runAt(1); // the newer read finishes first ...
        fake->tasks.runAt(1); // ... and reaches the main thread
        QCOMPARE(monitor->pendingSnapshot()->selectedText, QStringLiteral("brown"));

        element->selected = QStringLiteral("quick");
        element->range = TextRange{4, 5};
        fake->tasks.drain(); // the older one arrives last and is dropped
        QCOMPARE(monitor->pendingSnapshot()->selectedText, QStringLiteral("brown"));
        QCOMPARE(bubble->shows, 1);

        // A hot key read is superseded the same way by a later mouse capture.
        monitor->triggerFromHotkey();
        releaseAndSettle();
        QVERIFY(triggered.isEmpty());
        QCOMPARE(bubble->shows, 2);
    }

    // A second start keeps one set of monitors (mouse up, outside click, own-window click, Escape here
    // and anywhere); stop ends them and the work under way, and so does the monitor's end.
    void stopEndsMonitorsAndPendingWork() {
        start(TriggerMode::onSelection);
        start(TriggerMode::onSelection);
        QCOMPARE(fake->eventMonitors.installed(), 5);
        fake->eventMonitors.globalMouseUp(release());
        fake->clock.advance(SelectionMonitor::debounceMs);
        monitor->stop();
        QCOMPARE(fake->eventMonitors.installed(), 0);
        QVERIFY(!monitor->isRunning());
        fake->tasks.drain();
        QCOMPARE(bubble->shows, 0);
        QVERIFY(!monitor->pendingSnapshot());

        start(TriggerMode::hotkey);
        monitor->triggerFromHotkey();
        monitor.reset();
        fake->tasks.drain();
        QVERIFY(triggered.isEmpty());

        monitor = std::make_unique<SelectionMonitor>(fake->desktop(), *service, *bubble, *card);
        start(TriggerMode::onSelection);
        fake->eventMonitors.globalMouseUp(release());
        monitor.reset();
        QCOMPARE(fake->clock.pendingTasks(), 0);
        settle();
        QCOMPARE(bubble->shows, 0);
    }

    void clicksElsewhere_data() {
        QTest::addColumn<bool>("global");
        QTest::addColumn<std::optional<quint64>>("window");
        QTest::addColumn<bool>("autoHide");
        QTest::addColumn<bool>("dismissed");
        const std::optional<quint64> none;
        QTest::newRow("other app, auto-hide on") << true << none << true << true;
        QTest::newRow("other app, auto-hide off") << true << none << false << false;
        QTest::newRow("on the bubble") << false << std::optional<quint64>(bubbleWindow) << true << false;
        QTest::newRow("inside the card") << false << std::optional<quint64>(cardWindow) << true << false;
        QTest::newRow("settings window, auto-hide off")
            << false << std::optional<quint64>(42) << false << true;
        QTest::newRow("own event without window") << false << none << true << false;
    }
    void clicksElsewhere() {
        QFETCH(bool, global);
        QFETCH(std::optional<quint64>, window);
        QFETCH(bool, autoHide);
        QFETCH(bool, dismissed);
        monitor->setAutoHideDismissEnabled(autoHide);
        start(TriggerMode::onSelection);
        releaseAndSettle();
        journal.clear();
        MouseEvent click;
        click.windowId = window;
        if (global)
            fake->eventMonitors.globalMouseDown(click);
        else
            fake->eventMonitors.localMouseDown(click);
        QCOMPARE(bubble->isVisible(), !dismissed);
        QCOMPARE(journal.contains(QStringLiteral("close")), dismissed);
    }

    // Desktops that hide the pointer tell selection changes instead: every step of a drag is one, and the
    // selection counts once the steps have stopped for the debounce.
    void settledSelectionCountsOnceTheStepsStop() {
        fake->eventMonitors.reportsSelectionChanges = true;
        start(TriggerMode::onSelection);
        QCOMPARE(fake->eventMonitors.installed(), 6);
        for (int step = 0; step < 3; ++step) {
            fake->eventMonitors.selectionChanged(changed());
            fake->clock.advance(SelectionMonitor::debounceMs - 1);
        }
        QCOMPARE(gateAsked, 0);
        fake->clock.advance(1);
        fake->tasks.drain();
        QCOMPARE(bubble->shows, 1);
        QCOMPARE(monitor->pendingSnapshot(), expectedSnapshot());

        // The hot key answers it; the desktop tells of its last steps only after the read: the card that
        // explains it stays, without a bubble. Another selection brings the bubble.
        monitor->triggerFromHotkey();
        fake->tasks.drain();
        card->visible = true;
        journal.clear();
        fake->eventMonitors.selectionChanged(changed());
        settle();
        QCOMPARE(journal, QStringList{});
        fake->accessibility.focused = FakeElement::textArea(QStringLiteral("The quick brown fox"), 10, 5);
        fake->eventMonitors.selectionChanged(changed());
        settle();
        QCOMPARE(journal, (QStringList{QStringLiteral("close"), QStringLiteral("bubble")}));

        // Collapsing it (a click, a caret move) takes the bubble away and ends a burst under way.
        const int asked = gateAsked;
        fake->eventMonitors.selectionChanged(changed());
        fake->eventMonitors.selectionChanged(changed(SelectionChange::Source::accessibility, true));
        QVERIFY(!bubble->isVisible());
        settle();
        QCOMPARE(gateAsked, asked);
        // Selections in Nubra's own windows (the card) are not the user's reading.
        fake->eventMonitors.selectionChanged(
            changed(SelectionChange::Source::accessibility, false, QCoreApplication::applicationPid()));
        settle();
        QCOMPARE(gateAsked, asked);
    }

    // PRIMARY counts only when it changed during the burst, so one left from before is never taken. A
    // selection only PRIMARY told of was made where accessibility does not reach, unless the focused
    // element holds the same words (an application that tells accessibility late).
    void settledSelectionReadsWhatToldOfIt_data() {
        QTest::addColumn<QList<SelectionChange::Source>>("sources");
        QTest::addColumn<QString>("elementSelection");
        QTest::addColumn<QString>("primary");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("before");
        using S = SelectionChange::Source;
        const QString context = u"he "_qs;
        QTest::newRow("accessibility")
            << QList<S>{S::accessibility} << u"quick"_qs << u"other"_qs << u"quick"_qs << context;
        QTest::newRow("primary only, elsewhere")
            << QList<S>{S::primary} << u"quick"_qs << u"from primary"_qs << u"from primary"_qs << QString();
        QTest::newRow("primary only, accessibility late")
            << QList<S>{S::primary} << u"quick"_qs << u"quick"_qs << u"quick"_qs << context;
        QTest::newRow("both") << QList<S>{S::primary, S::accessibility} << u"quick"_qs << u"other"_qs
                              << u"quick"_qs << context;
        QTest::newRow("accessibility without selection, stale primary")
            << QList<S>{S::accessibility} << QString() << u"other"_qs << QString() << QString();
    }
    void settledSelectionReadsWhatToldOfIt() {
        QFETCH(QList<SelectionChange::Source>, sources);
        QFETCH(QString, elementSelection);
        QFETCH(QString, primary);
        QFETCH(QString, text);
        QFETCH(QString, before);
        fake->eventMonitors.reportsSelectionChanges = true;
        std::static_pointer_cast<FakeElement>(fake->accessibility.focused)->selected = elementSelection;
        fake->primarySelection.current = primary;
        start(TriggerMode::onSelection);
        for (SelectionChange::Source source : sources)
            fake->eventMonitors.selectionChanged(changed(source));
        settle();
        // A selection only PRIMARY told of waits a little longer for accessibility to catch up.
        const bool primaryOnly = !sources.contains(SelectionChange::Source::accessibility);
        QCOMPARE(gateAsked, primaryOnly ? 0 : 1);
        fake->clock.advance(SelectionMonitor::primaryOnlyGraceMs);
        fake->clock.advance(SelectionService::probeRetryMs + SelectionService::copyRetryMs);
        fake->tasks.drain();
        QCOMPARE(monitor->pendingSnapshot() ? monitor->pendingSnapshot()->selectedText : QString(), text);
        QCOMPARE(monitor->pendingSnapshot() ? monitor->pendingSnapshot()->before : QString(), before);
        QCOMPARE(fake->keyboard.copies, 0);
    }

    // Without the pointer there is no Option key and no click count: Option selection waits for the hot
    // key, and in double-click mode one word (what a double click selects) counts.
    void settledSelectionInModesThatNeedThePointer_data() {
        QTest::addColumn<TriggerMode>("mode");
        QTest::addColumn<QString>("selection");
        QTest::addColumn<bool>("shown");
        QTest::newRow("option") << TriggerMode::optionSelection << u"quick"_qs << false;
        QTest::newRow("hot key") << TriggerMode::hotkey << u"quick"_qs << false;
        QTest::newRow("double click, one word") << TriggerMode::doubleClick << u"quick"_qs << true;
        QTest::newRow("double click, two words") << TriggerMode::doubleClick << u"quick brown"_qs << false;
    }
    void settledSelectionInModesThatNeedThePointer() {
        QFETCH(TriggerMode, mode);
        QFETCH(QString, selection);
        QFETCH(bool, shown);
        fake->eventMonitors.reportsSelectionChanges = true;
        fake->accessibility.focused = FakeElement::textArea(u"The quick brown fox"_qs, 4, selection.size());
        start(mode);
        fake->eventMonitors.selectionChanged(changed());
        settle();
        QCOMPARE(bubble->shows, shown ? 1 : 0);
        // Without windows of its own that it can place (no XWayland) there is no bubble to offer.
        fake->capabilities.ownWindowsPlaced = false;
        const int asked = gateAsked;
        fake->eventMonitors.selectionChanged(changed());
        settle();
        QCOMPARE(gateAsked, asked);
    }

    // Where neither the selection's rectangle nor the pointer is known, bubble and card go to a fixed
    // place: a line centred on the screen that has the pointer, a fifth of the way down its usable area.
    void unknownPlaceGoesToTheAnchor() {
        fake->eventMonitors.reportsSelectionChanges = true;
        std::static_pointer_cast<FakeElement>(fake->accessibility.focused)->bounds.reset();
        fake->screen.screenList << ScreenInfo{QRect(1440, 0, 1000, 800), QRect(1440, 0, 1000, 800), 1};
        fake->screen.mouse = {1500, 300};
        QList<std::pair<bool, QRectF>> seen;
        monitor->setCaptureObserver([&](const CaptureOutcome& outcome, qint64) {
            seen.append({outcome.placed, outcome.snapshot.bounds});
        });
        start(TriggerMode::onSelection);
        fake->eventMonitors.selectionChanged(changed());
        settle();
        // The second screen is 800 high in a 900 high desktop: its usable area spans y 100 to 900.
        const QRectF anchor(1440 + 500 - 120, 100 + 800 * 0.8 - 20, 240, 20);
        QCOMPARE(seen, (QList<std::pair<bool, QRectF>>{{false, anchor}}));
        QCOMPARE(monitor->pendingSnapshot()->bounds, anchor);
        // A mouse gesture knows where the pointer is: there the pointer stands in, as on X11.
        releaseAndSettle();
        QCOMPARE(seen.last(), (std::pair<bool, QRectF>{true, QRectF(1500, 300, 1, 1)}));
    }

    void observerSeesPathAndLatencyWithoutDebounce() {
        QList<std::pair<CapturePath, qint64>> seen;
        monitor->setCaptureObserver([&](const CaptureOutcome& outcome, qint64 latency) {
            seen.append({outcome.path, latency});
        });
        start(TriggerMode::onSelection);
        // The first probe comes back blank; the retry 250 ms later finds the selection.
        auto element = std::static_pointer_cast<FakeElement>(fake->accessibility.focused);
        element->selected = QString();
        fake->clock.setOnSleep([element](int) { element->selected = QStringLiteral("quick"); });
        releaseAndSettle();
        QCOMPARE(seen, (QList<std::pair<CapturePath, qint64>>{{CapturePath::accessibility, 250}}));
    }
};

QTEST_GUILESS_MAIN(SelectionMonitorTest)
#include "tst_selectionmonitor.moc"
