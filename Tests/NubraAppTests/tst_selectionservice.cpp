#include "NubraApp/Capture/SelectionService.h"
#include "NubraCore/Capture/ClipboardSnapshot.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "NubraPlatform/fake/FakeDesktop.h"
#include "TestSupport/DebugLogCapture.h"

#include <QTest>

using Stroke = SyntheticKeyboard::CopyStroke;

Q_DECLARE_METATYPE(CaptureTrigger)
Q_DECLARE_METATYPE(FocusGuard)

class SelectionServiceTest : public QObject {
    Q_OBJECT

    std::unique_ptr<FakeDesktop> fake;
    std::unique_ptr<SelectionService> service;
    std::unique_ptr<DebugLogCapture> log;

    void seedPasteboard() {
        fake->pasteboard.setData("user's own text", Pasteboard::plainTextType());
        fake->pasteboard.setData("<b>user's own text</b>", QStringLiteral("text/html"));
    }
    QList<ClipboardSnapshot::Item> userPasteboard() const {
        return {{Pasteboard::plainTextType(), "user's own text"},
                {QStringLiteral("text/html"), "<b>user's own text</b>"}};
    }
    QList<ClipboardSnapshot::Item> pasteboardNow() const {
        return ClipboardSnapshot::capture(fake->pasteboard).items;
    }

private slots:
    void init() {
        fake = std::make_unique<FakeDesktop>();
        service = std::make_unique<SelectionService>(fake->desktop());
        log = std::make_unique<DebugLogCapture>();
        fake->frontApplications.front =
            FrontApp{QStringLiteral("Editor"), QStringLiteral("org.example.Editor"), 4242};
        fake->screen.mouse = QPointF(300, 400);
        L10n::setOverride(QStringLiteral("en"));
    }
    void cleanup() {
        L10n::setOverride(std::nullopt);
        log.reset();
    }

    void accessibilityPathCutsRangeOutOfValue() {
        auto element = FakeElement::textArea(QStringLiteral("The quick brown fox jumps"), 4, 5);
        element->selected = QStringLiteral("QUICK"); // the range, not this attribute, decides the text
        element->bounds = QRectF(100, 200, 50, 20);
        fake->accessibility.focused = element;
        seedPasteboard();
        const qint64 changes = fake->pasteboard.changeCount();

        const auto outcome = service->capture(4);
        QVERIFY(outcome);
        QCOMPARE(outcome->path, CapturePath::accessibility);
        // Top-left (100, 200) on a 900-high primary display: y = 900 - (200 + 20).
        QCOMPARE(outcome->snapshot, (SelectionSnapshot{u"quick"_qs, u"The "_qs, u" bro"_qs, u"Editor"_qs,
                                                       QRectF(100, 680, 50, 20)}));
        QCOMPARE(element->boundsQueries, (QList<TextRange>{{4, 5}}));
        QCOMPARE(fake->accessibility.enabledApplications, QList<qint64>{4242});
        QCOMPARE(fake->pasteboard.changeCount(), changes);
        QCOMPARE(fake->keyboard.copies, 0);
        QCOMPARE(fake->primarySelection.reads, 0);
        QVERIFY(fake->clock.sleeps().isEmpty());
        QCOMPARE(service->currentSelection(4), outcome->snapshot);
    }

    void accessibilityPathEdges() {
        // An empty value: the untrimmed selected text through the grapheme cut, no context.
        auto element = FakeElement::textArea(QString(), 0, 4);
        element->selected = QStringLiteral(" hi ");
        fake->accessibility.focused = element;
        auto outcome = service->capture(200);
        QVERIFY(outcome);
        QCOMPARE(outcome->snapshot.selectedText, QStringLiteral(" hi "));
        QVERIFY(outcome->snapshot.before.isEmpty() && outcome->snapshot.after.isEmpty());
        // No bounds (or a flat rectangle): 1 x 1 at the mouse, not flipped again.
        QCOMPARE(outcome->snapshot.bounds, QRectF(300, 400, 1, 1));
        element->fullText = QStringLiteral("short hi");
        element->bounds = QRectF(10, 10, 0, 16);
        QCOMPARE(service->capture(200)->snapshot.bounds, QRectF(300, 400, 1, 1));

        // A range beyond the value: the snapshot carries an empty selection.
        element->range = TextRange{50, 3};
        outcome = service->capture(3);
        QCOMPARE(outcome->path, CapturePath::accessibility);
        QVERIFY(outcome->snapshot.selectedText.isEmpty());
        QCOMPARE(outcome->snapshot.before, QStringLiteral(" hi"));

        QVERIFY(fake->clock.sleeps().isEmpty());
    }

    // A blank first probe, retried 250 ms later: tst_selectionmonitor's observer case.

    void selectionWithoutRangeUsesPrimarySelection() {
        auto element = FakeElement::textArea(QStringLiteral("alpha beta"), 6, 4);
        element->rangeSucceeds = false;
        fake->accessibility.focused = element;
        fake->primarySelection.current = QStringLiteral("beta");
        seedPasteboard();

        const auto outcome = service->capture(200);
        QVERIFY(outcome);
        QCOMPARE(outcome->path, CapturePath::primary);
        QCOMPARE(outcome->snapshot,
                 (SelectionSnapshot{
                     QStringLiteral("beta"), {}, {}, QStringLiteral("Editor"), QRectF(300, 400, 1, 1)}));
        QCOMPARE(fake->keyboard.copies, 0);
        QCOMPARE(pasteboardNow(), userPasteboard());
        QVERIFY(fake->clock.sleeps().isEmpty()); // the selection was not blank, so no probe retry

        // From an application that keeps its text from accessibility, the log says how to change that.
        QVERIFY(log->messages().isEmpty());
        fake->treeless.apps = {{u"Slack"_qs, TreelessApp::Kind::electron, 4242}};
        QCOMPARE(service->capture(200)->path, CapturePath::primary);
        QCOMPARE(log->messages(),
                 QStringList{u"selection: primary from Slack, which runs without its accessibility tree (no "
                             "context, card at the pointer); start it with the environment variable "
                             "ACCESSIBILITY_ENABLED=1"_qs});
    }

    void focusLeftBehindInAnotherApplicationIsNotRead() {
        auto element = FakeElement::textArea(QStringLiteral("alpha beta"), 6, 4);
        element->owner = 77; // the editor in front is process 4242
        fake->accessibility.focused = element;
        QVERIFY(!service->capture(200));
        QCOMPARE(fake->keyboard.copies, 2);
        // A password field left behind does not stand in the way of the application in front either.
        element->roleName = QStringLiteral("AXSecureTextField");
        QCOMPARE(service->focusGuard(), FocusGuard::ordinary);

        // A sandboxed application numbers its processes its own way: its element in the active window is
        // the one in front, password fields included.
        element->activeWindow = true;
        QCOMPARE(service->focusGuard(), FocusGuard::password);
        element->roleName = QStringLiteral("AXTextArea");
        QCOMPARE(service->capture(200)->path, CapturePath::accessibility);

        element->activeWindow = std::nullopt; // cannot tell: only the same process counts
        QVERIFY(!service->capture(200, CaptureTrigger::mouse(1, false)));
        element->owner = 4242;
        QCOMPARE(service->capture(200)->path, CapturePath::accessibility);
    }

    void syntheticCopyRestoresPasteboard() {
        fake->primarySelection.current = QStringLiteral("  \n"); // blank PRIMARY does not count
        fake->keyboard.copiedText = QStringLiteral(" copied text ");
        seedPasteboard();

        const auto outcome = service->capture(200);
        QVERIFY(outcome);
        QCOMPARE(outcome->path, CapturePath::clipboard);
        QCOMPARE(outcome->snapshot.selectedText, QStringLiteral(" copied text ")); // untrimmed
        QCOMPARE(outcome->snapshot.bounds, QRectF(300, 400, 1, 1));
        QCOMPARE(fake->keyboard.strokes,
                 (QList<Stroke>{Stroke::modifierDown, Stroke::keyDown, Stroke::keyUp, Stroke::modifierUp}));
        // No element: one probe retry, then the 40 ms key hold; the change is seen at the first poll.
        QCOMPARE(fake->clock.sleeps(), (QList<int>{250, 40}));
        QCOMPARE(pasteboardNow(), userPasteboard());
    }

    void copyThatNeverArrivesFailsAfterTwoAttempts() {
        seedPasteboard();
        const qint64 changes = fake->pasteboard.changeCount();
        const auto outcome = service->capture(200);
        QVERIFY(!outcome);
        QCOMPARE(fake->keyboard.copies, 2);
        QCOMPARE(fake->pasteboard.changeCount(), changes); // nothing to undo, so nothing written back

        // Only white space selected and copied counts as nothing either.
        fake->accessibility.focused = FakeElement::textArea(QStringLiteral("a   b"), 1, 3);
        fake->keyboard.copiedText = QStringLiteral(" \t\n");
        QVERIFY(!service->capture(200));
        QCOMPARE(pasteboardNow(), userPasteboard());
    }

    // Without a readable selection, what a gesture may fall back on: PRIMARY only when it changed after
    // the press, a copy only after a gesture that selects and only where no element answered; the hot
    // key takes both, and nothing ever sends the copy into a terminal.
    void fallbacksFollowTheTrigger_data() {
        QTest::addColumn<CaptureTrigger>("trigger");
        QTest::addColumn<bool>("withElement");
        QTest::addColumn<QString>("frontClass");
        QTest::addColumn<std::optional<quint64>>("ownerChange");
        QTest::addColumn<QString>("expected"); // the path taken, or empty for no capture

        const auto mouse = CaptureTrigger::mouse;
        const auto hotkey = CaptureTrigger::hotkey();
        const QString editor = QStringLiteral("org.example.Editor");
        using Owner = std::optional<quint64>;
        QTest::newRow("plain click, PRIMARY changed after the press")
            << mouse(1000, false) << false << editor << Owner(1000) << u"primary"_qs;
        QTest::newRow("plain click, PRIMARY from before the press")
            << mouse(1000, false) << false << editor << Owner(999) << QString();
        QTest::newRow("server time wrapped around since")
            << mouse(0xFFFFFF00, false) << false << editor << Owner(0x100000010) << u"primary"_qs;
        QTest::newRow("drag, stale PRIMARY, no element: copy")
            << mouse(1000, true) << false << editor << Owner(10) << u"clipboard"_qs;
        QTest::newRow("drag, stale PRIMARY, element with a blank selection")
            << mouse(1000, true) << true << editor << Owner(10) << QString();
        QTest::newRow("drag into a terminal by its window class")
            << mouse(1000, true) << false << u"URxvt"_qs << Owner(10) << QString();
        QTest::newRow("owner changes unknown: trusted after a selecting gesture")
            << mouse(1000, true) << true << editor << Owner() << u"primary"_qs;
        QTest::newRow("owner changes unknown: not after a plain click")
            << mouse(1000, false) << false << editor << Owner() << QString();
        QTest::newRow("hot key takes stale PRIMARY") << hotkey << true << editor << Owner(0) << u"primary"_qs;
        QTest::newRow("hot key copies beside an element")
            << hotkey << true << editor << Owner() << u"clipboard"_qs;
        QTest::newRow("hot key never copies into a terminal")
            << hotkey << false << u"kitty"_qs << Owner() << QString();
    }
    void fallbacksFollowTheTrigger() {
        QFETCH(CaptureTrigger, trigger);
        QFETCH(bool, withElement);
        QFETCH(QString, frontClass);
        QFETCH(std::optional<quint64>, ownerChange);
        QFETCH(QString, expected);
        if (withElement)
            fake->accessibility.focused = FakeElement::textArea(QStringLiteral("alpha beta"), 0, 0);
        fake->frontApplications.front->identifier = frontClass;
        fake->primarySelection.ownerChange = ownerChange;
        // PRIMARY holds the selection where the case expects it read, else an old one for a gesture (which
        // must not take it) and nothing for the hot key (which would); a copy would always work.
        if (expected == u"primary")
            fake->primarySelection.current = QStringLiteral("beta");
        else if (!trigger.explicitRequest)
            fake->primarySelection.current = QStringLiteral("old");
        if (expected != u"primary")
            fake->keyboard.copiedText = QStringLiteral("beta");
        seedPasteboard();

        const auto outcome = service->capture(200, trigger);
        QCOMPARE(outcome ? capturePathName(outcome->path) : QString(), expected);
        if (outcome)
            QCOMPARE(outcome->snapshot.selectedText, QStringLiteral("beta"));
        QCOMPARE(fake->keyboard.copies > 0, expected == u"clipboard");
        QCOMPARE(pasteboardNow(), userPasteboard());
    }

    void terminalRoleRefusesTheCopy() {
        auto element = FakeElement::textArea(QString(), 0, 0);
        element->roleName = QStringLiteral("AXTerminal");
        fake->accessibility.focused = element;
        fake->keyboard.copiedText = QStringLiteral("ls -l");
        QVERIFY(!service->capture(200));
        QCOMPARE(fake->keyboard.copies, 0);
    }

    void failureLineNamesUnknownsWithQuestionMarks() {
        fake->frontApplications.front.reset();
        QVERIFY(!service->capture(200));
        fake->frontApplications.front = FrontApp{QString(), std::nullopt, 0};
        QVERIFY(!service->capture(200));
        fake->frontApplications.front = FrontApp{QStringLiteral("Terminal"), std::nullopt, 7};
        QVERIFY(!service->capture(200));
        QCOMPARE(log->messages(), (QStringList{QStringLiteral("selection: failed app=? name=?"),
                                               QStringLiteral("selection: failed app=? name=?"),
                                               QStringLiteral("selection: failed app=? name=Terminal")}));
    }

    void noEventSourceLeavesPasteboardUntouched() {
        fake->keyboard.canBegin = false;
        seedPasteboard();
        const qint64 changes = fake->pasteboard.changeCount();
        QVERIFY(!service->selectedTextViaClipboard());
        QCOMPARE(fake->pasteboard.changeCount(), changes);
        QVERIFY(fake->keyboard.strokes.isEmpty());
    }

    void pasteboardTextIsCutAtGraphemes() {
        QString emoji;
        for (int i = 0; i < 2001; ++i)
            emoji += QStringLiteral("👍🏽");
        fake->keyboard.copiedText = emoji;
        const auto outcome = service->capture(200);
        QVERIFY(outcome);
        QCOMPARE(outcome->snapshot.selectedText, emoji.left(2000 * 4));
    }

    void focusGuard_data() {
        QTest::addColumn<std::optional<QString>>("role");
        QTest::addColumn<FocusGuard>("guard");
        QTest::newRow("secure text field")
            << std::optional<QString>(QStringLiteral("AXSecureTextField")) << FocusGuard::password;
        QTest::newRow("password field")
            << std::optional<QString>(QStringLiteral("AXPasswordField")) << FocusGuard::password;
        QTest::newRow("plain text field")
            << std::optional<QString>(QStringLiteral("AXTextField")) << FocusGuard::ordinary;
        QTest::newRow("case differs")
            << std::optional<QString>(QStringLiteral("axsecuretextfield")) << FocusGuard::ordinary;
        QTest::newRow("role read fails") << std::optional<QString>() << FocusGuard::unknown;
    }
    void focusGuard() {
        QFETCH(std::optional<QString>, role);
        QFETCH(FocusGuard, guard);
        auto element = FakeElement::textArea(QStringLiteral("alpha beta"), 6, 4);
        element->roleName = role;
        fake->accessibility.focused = element;
        fake->primarySelection.current = QStringLiteral("beta");
        QCOMPARE(service->focusGuard(), guard);

        // A password field refuses; an element of unknown kind is not read and never copied from, but
        // PRIMARY, which password fields do not fill, is.
        const std::optional<CaptureOutcome> outcome = service->capture(200, CaptureTrigger::hotkey(), guard);
        const QString expected = guard == FocusGuard::password  ? QString()
                                 : guard == FocusGuard::unknown ? QStringLiteral("primary")
                                                                : QStringLiteral("accessibility");
        QCOMPARE(outcome ? capturePathName(outcome->path) : QString(), expected);
        fake->primarySelection.current.reset();
        QVERIFY(guard != FocusGuard::unknown || !service->capture(200, CaptureTrigger::hotkey(), guard));
        QCOMPARE(fake->keyboard.copies, 0);

        // Nothing focused is no password field; a focus query that could not complete may be one.
        fake->accessibility.focused.reset();
        QCOMPARE(service->focusGuard(), FocusGuard::ordinary);
        fake->accessibility.queueStatuses({FocusQuery::cannotComplete});
        QCOMPARE(service->focusGuard(), FocusGuard::unknown);
    }

    void anApplicationThatBuildsItsElementsWhenAskedGetsAMomentOnce() {
        fake->accessibility.wakesApplications = true;
        service->focusGuard();
        service->focusGuard();
        QCOMPARE(fake->clock.sleeps(), QList<int>{SelectionService::applicationWakeMs});
    }

    void selfCheck_data() {
        QTest::addColumn<QList<int>>("statuses");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<QList<int>>("sleeps");
        QTest::newRow("success") << QList<int>{0} << true << QList<int>{};
        QTest::newRow("unsupported") << QList<int>{-25205} << true << QList<int>{};
        QTest::newRow("no value") << QList<int>{-25212} << true << QList<int>{};
        QTest::newRow("api disabled") << QList<int>{-25211} << false << QList<int>{};
        QTest::newRow("late answer") << QList<int>{-25204, -25204, 0} << true << QList<int>{600, 600};
        QTest::newRow("never conclusive")
            << QList<int>{-25204, -1, -25204, 0} << false << QList<int>{600, 600, 600};
    }
    void selfCheck() {
        QFETCH(QList<int>, statuses);
        QFETCH(bool, ok);
        QFETCH(QList<int>, sleeps);
        for (int status : statuses)
            fake->accessibility.queueStatuses({status});
        QCOMPARE(service->selfCheck() == AXSelfCheckResult::ok, ok);
        QCOMPARE(fake->clock.sleeps(), sleeps);
    }

    // The grant, the probe and the advice that follows from them, the applications without their tree,
    // what this desktop allows, then the common cause (two lines).
    void diagnosisLines() {
        fake->accessibility.focused = std::make_shared<FakeElement>();
        QStringList lines = service->diagnose().split(QLatin1Char('\n'));
        const QStringList desktop = fake->capabilities.report();
        QCOMPARE(lines.size(), 6 + desktop.size() + 1);
        QCOMPARE(lines.mid(4, desktop.size()), desktop);
        QCOMPARE(lines.first(3),
                 (QStringList{QStringLiteral("Accessibility: granted ✓"),
                              QStringLiteral("Accessibility bus probe (focused element): OK ✓"),
                              QStringLiteral("→ Permission chain is fine. Select text in another app, then "
                                             "run diagnosis again.")}));

        // What is learnt after start-up: the desktop binds the hot key itself; the copy through its remote
        // control needs the user's step until the desktop agreed.
        fake->hotkeys.binds = true;
        fake->keyboard.permissionState = SyntheticKeyboard::Permission::refused;
        lines = service->diagnose().split(QLatin1Char('\n'));
        QVERIFY(
            lines.contains(u"✓ Hot key: through the desktop's global shortcuts, which may ask you to confirm "
                           "the keys"_qs));
        QVERIFY(lines.filter(u"→ Copy for applications without accessibility"_qs).size() == 1);
        fake->keyboard.permissionState = SyntheticKeyboard::Permission::granted;
        QVERIFY(service->diagnose().contains(
            u"✓ Copy for applications without accessibility: through the desktop's remote control"_qs));
        fake->hotkeys.binds = false;
        fake->keyboard.permissionState = SyntheticKeyboard::Permission::notNeeded;
        // A shortcut in the desktop's own settings: a step until the desktop says it runs the lookup.
        const DesktopCapabilities before = fake->capabilities;
        fake->capabilities.hotkey = DesktopCapabilities::Hotkey::desktopSettings;
        QVERIFY(service->diagnose().contains(u"→ Hot key: the desktop runs Nubra on a shortcut"_qs));
        fake->shortcuts.bound = HotkeyCombo::defaultCombo();
        QVERIFY(service->diagnose().contains(u"✓ Hot key: the desktop runs Nubra on its shortcut"_qs));
        fake->shortcuts.bound.reset();
        fake->capabilities = before;

        // Each application running without its tree, with what it costs and how to turn the tree on.
        fake->treeless.apps = {{u"Chromium"_qs, TreelessApp::Kind::chromiumBrowser, 10},
                               {u"Visual Studio Code"_qs, TreelessApp::Kind::electron, 11}};
        lines = service->diagnose().split(QLatin1Char('\n'));
        QCOMPARE(lines.size(), 11 + desktop.size() + 1);
        QCOMPARE(lines.mid(3, 6),
                 (QStringList{
                     QString(),
                     u"Chromium shares its text with accessibility only when asked, and Nubra asks it at "
                     "the first selection. If its selections still come without the text around them and "
                     "the card at the pointer:"_qs,
                     u"→ Start it with --force-renderer-accessibility."_qs,
                     u"Visual Studio Code shares its text with accessibility only when asked, and Nubra "
                     "asks it at the first selection. If its selections still come without the text around "
                     "them and the card at the pointer:"_qs,
                     u"→ Start it with the environment variable ACCESSIBILITY_ENABLED=1."_qs, QString()}));
        fake->treeless.apps.removeFirst();

        fake->accessibility.focused.reset();
        lines = service->diagnose().split(QLatin1Char('\n'));
        QCOMPARE(lines.first(3), (QStringList{lines[0],
                                              QStringLiteral("Accessibility bus probe: -25212 (may be no "
                                                             "focused element right now)"),
                                              QString()}));
        QCOMPARE(lines.size(), 8 + desktop.size() + 1);

        L10n::setOverride(QStringLiteral("zh"));
        fake->accessibility.trusted = false;
        lines = service->diagnose().split(QLatin1Char('\n'));
        QCOMPARE(lines.first(3),
                 (QStringList{QStringLiteral("辅助功能授权：未授权 ✗"),
                              QStringLiteral("辅助功能总线探测：apiDisabled ✗（辅助功能开关未打开）"),
                              QStringLiteral("→ 建议：把桌面的辅助功能开关关掉再打开；无效则重启应用。")}));
        QCOMPARE(
            lines.mid(4, 2),
            (QStringList{u"Visual Studio Code 只在被请求时才向辅助功能公开文字，Nubra 会在第一次选中时请求。"
                         "如果之后选中的内容仍不含前后文、卡片仍出现在鼠标指针处："_qs,
                         u"→ 请设置环境变量 ACCESSIBILITY_ENABLED=1 后再启动它。"_qs}));
    }
};

QTEST_GUILESS_MAIN(SelectionServiceTest)
#include "tst_selectionservice.moc"
