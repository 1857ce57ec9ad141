#include "NubraApp/Capture/HotkeyManager.h"
#include "NubraApp/Capture/SelectionService.h"
#include "NubraApp/Foundation/AppServices.h"
#include "NubraApp/Foundation/AppState.h"
#include "NubraApp/Foundation/PlatformTexts.h"
#include "NubraApp/Onboarding/BusySpinner.h"
#include "NubraApp/Onboarding/PermissionFlowView.h"
#include "NubraApp/Onboarding/PermissionMonitor.h"
#include "NubraApp/Onboarding/Symbols.h"
#include "NubraApp/Shell/NubraWindows.h"
#include "NubraCore/Service/SecretStore.h"
#include "NubraCore/Support/Defaults.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "NubraPlatform/TrustWatcher.h"
#include "NubraPlatform/fake/FakeDesktop.h"
#include "TestSupport/DebugLogCapture.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QScopeGuard>
#include <QScreen>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>

#include <memory>

namespace {

// A real state and the window services over a simulated desktop, installed for the test's lifetime.
struct Kit {
    Kit() {
        state = std::make_unique<AppState>(defaults, secrets, QUrl(u"http://127.0.0.1:9"_qs),
                                           dir.filePath(u"history.sqlite3"_qs));
        NubraWindows::install(&services);
    }
    ~Kit() {
        NubraWindows::install(nullptr);
        state.reset();
        QThreadPool::globalInstance()->waitForDone();
    }

    AppSettings& settings() { return state->settings(); }

    DebugLogCapture log;
    QTemporaryDir dir;
    InMemoryDefaults defaults;
    InMemorySecretStore secrets;
    FakeDesktop fake;
    Desktop desktop = fake.desktop();
    HotkeyManager hotkeys{fake.hotkeys};
    TrustWatcher trust{fake.accessibility, fake.tasks};
    AppServices services{desktop, hotkeys, trust};
    std::unique_ptr<AppState> state;
};

// The texts on screen, top to bottom: labels and button captions.
QStringList shownTexts(const QWidget& root) {
    QStringList texts;
    for (const QWidget* widget : root.findChildren<QWidget*>()) {
        if (!widget->isVisibleTo(&root))
            continue;
        if (const auto* label = qobject_cast<const QLabel*>(widget))
            texts << label->text();
        else if (const auto* button = qobject_cast<const QPushButton*>(widget))
            texts << button->text();
    }
    return texts;
}

template <typename T> QList<T*> shown(const QWidget& root) {
    QList<T*> result;
    for (T* widget : root.findChildren<T*>()) {
        if (widget->isVisibleTo(&root))
            result << widget;
    }
    return result;
}

void click(const QWidget& root, const char* name) {
    auto* button = root.findChild<QAbstractButton*>(QString::fromLatin1(name));
    QVERIFY2(button && button->isVisibleTo(&root), name);
    QTest::mouseClick(button, Qt::LeftButton);
}

struct Screen {
    PermissionPhase phase;
    Symbol symbol;
    int symbolSize;
    bool busy;
    QStringList texts;
};

// Every screen in the order a user meets them, in the current interface language.
QList<Screen> screensInOrder() {
    const auto platform = [](PlatformText id) { return PlatformTexts::text(id); };
    const Screen checking{PermissionPhase::checking,
                          Symbol::checkmarkSeal,
                          40,
                          true,
                          {L10n::t(u"Permission detected"_qs, u"已检测到授权"_qs),
                           L10n::t(u"Verifying that it takes effect…"_qs, u"正在验证权限是否生效…"_qs)}};
    return {
        {PermissionPhase::notTrusted,
         Symbol::handTap,
         44,
         true,
         {L10n::t(u"Enable Accessibility"_qs, u"开启辅助功能权限"_qs),
          L10n::t(u"Nubra needs this permission to read your selected text and its position."_qs,
                  u"Nubra 需要该权限来读取你选中的文本与选区位置。"_qs),
          platform(PlatformText::onboardingStepOpenSettings),
          platform(PlatformText::onboardingStepFindSwitch), platform(PlatformText::openSettingsButton),
          platform(PlatformText::waitingForSwitch)}},
        checking,
        {PermissionPhase::needsRestart,
         Symbol::circlePath,
         40,
         false,
         {L10n::t(u"One more step"_qs, u"还差一步"_qs),
          L10n::t(u"System shows the permission is on, but Nubra needs one restart to take effect."_qs,
                  u"系统显示已授权，但 Nubra 需要重启一次才能生效。"_qs),
          L10n::t(u"Still not working? Toggle it off and on, or just restart the app."_qs,
                  u"开关已打开仍无效？把它关掉再打开，或直接重启应用。"_qs),
          L10n::t(u"Restart Nubra"_qs, u"重启 Nubra"_qs),
          L10n::t(u"Restart later manually"_qs, u"稍后手动重启"_qs)}},
        checking, // the switch toggled off and on again
        {PermissionPhase::active,
         Symbol::checkmarkCircle,
         40,
         false,
         {L10n::t(u"Authorized"_qs, u"已授权"_qs),
          L10n::t(u"Now select some text in any app to try it."_qs, u"现在去任意应用选中一段文字试试。"_qs),
          L10n::t(u"This window will finish automatically."_qs, u"完成后这里会自动打勾收尾。"_qs)}},
        {PermissionPhase::done,
         Symbol::checkmarkCircle,
         40,
         false,
         {L10n::t(u"All set!"_qs, u"搞定！"_qs), L10n::t(u"Start reading — select any text to gloss it."_qs,
                                                         u"开始阅读吧。选中内容随时可以划词解释。"_qs)}},
    };
}

} // namespace

class OnboardingTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { L10n::setOverride(u"en"_qs); }
    void cleanupTestCase() { L10n::setOverride(std::nullopt); }

    void eachPhaseShowsItsScreen() {
        for (const QString& language : {u"en"_qs, u"zh"_qs}) {
            L10n::setOverride(language);
            InMemoryDefaults defaults;
            AppSettings settings(defaults);
            PermissionFlowView view(settings);
            view.show();
            // The view follows the phase as it moves, screen by screen.
            for (const Screen& screen : screensInOrder()) {
                settings.setPermissionPhase(screen.phase);
                QCOMPARE(shownTexts(view), screen.texts);
                const QList<SymbolView*> symbols = shown<SymbolView>(view);
                QCOMPARE(symbols.size(), 1);
                QCOMPARE(symbols.constFirst()->symbol(), screen.symbol);
                QCOMPARE(symbols.constFirst()->width(), screen.symbolSize);
                const QList<BusySpinner*> spinners = shown<BusySpinner>(view);
                QCOMPARE(spinners.size(), screen.busy ? 1 : 0);
                // Only the spinner on screen runs; the others keep the application idle.
                for (const BusySpinner* spinner : view.findChildren<BusySpinner*>())
                    QCOMPARE(spinner->isSpinning(), spinners.contains(spinner));
            }
        }
        L10n::setOverride(u"en"_qs);
    }

    void buttonsReachTheApplication() {
        Kit kit;
        NubraWindows::showPermissionFlow(*kit.state);
        QPointer<QWidget> window = NubraWindows::permissionWindow();
        QVERIFY(window && window->isVisible());
        QCOMPARE(window->windowTitle(), u"Get Started with Nubra"_qs);

        click(*window, "openSettingsButton");
        QCOMPARE(kit.fake.accessibility.settingsOpened, 1);

        kit.settings().setPermissionPhase(PermissionPhase::needsRestart);
        auto* view = window->findChild<PermissionFlowView*>();
        // Restarting would start another copy of this test; the view only has to ask for it.
        disconnect(view, &PermissionFlowView::restartRequested, nullptr, nullptr);
        QSignalSpy restart(view, &PermissionFlowView::restartRequested);
        click(*window, "restartButton");
        QCOMPARE(restart.count(), 1);
        QVERIFY(window->isVisible());
        click(*window, "restartLaterButton");
        QVERIFY(!window->isVisible());
        QVERIFY(window); // kept for the next time
    }

    void windowIsReusedAndFitsItsScreens() {
        Kit kit;
        NubraWindows::showPermissionFlow(*kit.state);
        QPointer<QWidget> window = NubraWindows::permissionWindow();
        QTRY_COMPARE(QGuiApplication::focusWindow(), window->windowHandle());
        QVERIFY(window->width() >= 400 && window->height() >= 320);
        const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
        // Centred, give or take the window frame.
        QVERIFY((window->geometry().center() - area.center()).manhattanLength() <= 8);

        // While it is on screen another request changes nothing, not even the focus.
        QWidget other;
        other.show();
        other.activateWindow();
        QTRY_COMPARE(QGuiApplication::focusWindow(), other.windowHandle());
        NubraWindows::showPermissionFlow(*kit.state);
        QTest::qWait(50);
        QCOMPARE(QGuiApplication::focusWindow(), other.windowHandle());

        // Closed, it comes back as the same window.
        window->close();
        QVERIFY(!window->isVisible());
        NubraWindows::showPermissionFlow(*kit.state);
        QCOMPARE(NubraWindows::permissionWindow(), window.data());
        QVERIFY(window->isVisible());
        QTRY_COMPARE(QGuiApplication::focusWindow(), window->windowHandle());

        // Removing the services takes the window with them.
        NubraWindows::install(nullptr);
        QVERIFY(!window);
        NubraWindows::install(&kit.services);

        // A larger desktop font: the window grows until every screen fits, in both languages.
        const QFont font = QApplication::font();
        auto restore = qScopeGuard([font] {
            QApplication::setFont(font);
            L10n::setOverride(u"en"_qs);
        });
        QFont large = font;
        large.setPointSizeF(14);
        QApplication::setFont(large);
        for (const QString& language : {u"en"_qs, u"zh"_qs}) {
            L10n::setOverride(language);
            NubraWindows::install(nullptr);
            NubraWindows::install(&kit.services);
            NubraWindows::showPermissionFlow(*kit.state);
            window = NubraWindows::permissionWindow();
            QVERIFY(window->height() > 320);
            for (const Screen& screen : screensInOrder()) {
                kit.settings().setPermissionPhase(screen.phase);
                QCoreApplication::sendPostedEvents(); // the layout of the screen just shown
                for (const QLabel* label : shown<QLabel>(*window)) {
                    const QRect place(label->mapTo(window, QPoint()), label->size());
                    QVERIFY2(window->rect().contains(place), qPrintable(label->text()));
                    QVERIFY2(label->height() >= label->heightForWidth(label->width()),
                             qPrintable(label->text()));
                }
            }
        }
    }

    void windowClosesShortlyAfterTheFirstGloss() {
        Kit kit;
        SelectionService service(kit.desktop);
        PermissionMonitor monitor(kit.desktop, service, kit.trust);
        // Wired as the application wires them.
        connect(&monitor, &PermissionMonitor::permissionGranted, this,
                [&kit] { NubraWindows::showPermissionFlow(*kit.state, NubraWindows::Focus::leave); });
        connect(&monitor, &PermissionMonitor::closePermissionWindow, this,
                &NubraWindows::closePermissionFlow);
        monitor.start(*kit.state);
        kit.fake.tasks.drain(); // trusted, and the probe finds the permission in force
        QCOMPARE(kit.settings().permissionPhase(), PermissionPhase::active);
        QPointer<QWidget> window = NubraWindows::permissionWindow();
        QVERIFY(window && window->isVisible());
        QVERIFY(shownTexts(*window).contains(u"Authorized"_qs));

        monitor.notifyFirstGloss(*kit.state);
        QVERIFY(shownTexts(*window).contains(u"All set!"_qs));
        // When exactly is the monitor's business; here, that its signal puts the window away.
        kit.fake.clock.advance(PermissionMonitor::closeDelayMs);
        QVERIFY(!window->isVisible());
        QVERIFY(window);
    }

    void welcomeAppearsOnceAtTheTopRight() {
        Kit kit;
        NubraWindows::showWelcome();
        QPointer<QWidget> panel = NubraWindows::welcomePanel();
        QVERIFY(panel && panel->isVisible());
        const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
        QCOMPARE(panel->pos(), QPoint(area.x() + area.width() - 300 - 16, area.y() + 6));
        QCOMPARE(panel->size(), QSize(300, 88));
        QVERIFY(shownTexts(*panel).contains(PlatformTexts::text(PlatformText::welcomeIconLocation)));
        // The offscreen platform activates whatever it shows, so what keeps the focus on X11 is checked:
        // a tool window that refuses focus and is shown without activation.
        QCOMPARE(panel->windowType(), Qt::Tool);
        QVERIFY(panel->windowHandle()->flags().testFlag(Qt::WindowDoesNotAcceptFocus));
        QVERIFY(panel->testAttribute(Qt::WA_ShowWithoutActivating));

        NubraWindows::showWelcome();
        QCOMPARE(NubraWindows::welcomePanel(), panel.data());
        kit.fake.clock.advance(NubraWindows::welcomeShownMs - 1);
        QVERIFY(panel->isVisible());
        kit.fake.clock.advance(1);
        QVERIFY(!panel->isVisible());
        // Once per process: asking again shows nothing.
        NubraWindows::showWelcome();
        QVERIFY(!panel->isVisible());

        panel->show();
        click(*panel, "closeButton");
        QVERIFY(!panel->isVisible());
        NubraWindows::install(nullptr);
        QVERIFY(!panel);
    }
};

QTEST_MAIN(OnboardingTest)
#include "tst_onboarding.moc"
