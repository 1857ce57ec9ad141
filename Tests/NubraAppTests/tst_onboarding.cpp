#include "AppTestKit.h"
#include "NubraApp/Onboarding/BusySpinner.h"
#include "NubraApp/Onboarding/PermissionFlowView.h"
#include "NubraApp/Onboarding/Symbols.h"
#include "NubraApp/Onboarding/WelcomeView.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QScopeGuard>
#include <QScreen>
#include <QSignalSpy>

namespace {

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

struct Screen {
    PermissionPhase phase;
    Symbol symbol;
    bool busy;
    QString title;
    int texts; // labels and buttons shown
};

// Every screen in the order a user meets them.
const QList<Screen> screens{
    {PermissionPhase::notTrusted, Symbol::handTap, true, u"Enable Accessibility"_qs, 6},
    {PermissionPhase::checking, Symbol::checkmarkSeal, true, u"Permission detected"_qs, 2},
    {PermissionPhase::needsRestart, Symbol::circlePath, false, u"One more step"_qs, 5},
    {PermissionPhase::checking, Symbol::checkmarkSeal, true, u"Permission detected"_qs, 2}, // toggled again
    {PermissionPhase::active, Symbol::checkmarkCircle, false, u"Authorized"_qs, 4},
    {PermissionPhase::done, Symbol::checkmarkCircle, false, u"All set!"_qs, 2},
};

} // namespace

class OnboardingTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { L10n::setOverride(u"en"_qs); }
    void cleanupTestCase() { L10n::setOverride(std::nullopt); }

    // The view follows the phase as it moves, screen by screen; in Chinese every text is translated.
    void eachPhaseShowsItsScreen() {
        auto restore = qScopeGuard([] { L10n::setOverride(u"en"_qs); });
        QList<QStringList> english;
        for (const QString& language : {u"en"_qs, u"zh"_qs}) {
            L10n::setOverride(language);
            InMemoryDefaults defaults;
            AppSettings settings(defaults);
            PermissionFlowView view(settings);
            view.show();
            for (qsizetype i = 0; i < screens.size(); ++i) {
                const Screen& screen = screens[i];
                settings.setPermissionPhase(screen.phase);
                const QStringList texts = shownTexts(view);
                QCOMPARE(texts.size(), screen.texts);
                if (language == u"en") {
                    QCOMPARE(texts.first(), screen.title);
                    english << texts;
                }
                for (qsizetype j = 0; language == u"zh" && j < texts.size(); ++j)
                    QVERIFY2(texts[j] != english[i][j], qPrintable(texts[j]));
                const QList<SymbolView*> symbols = shown<SymbolView>(view);
                QCOMPARE(symbols.size(), 1);
                QCOMPARE(symbols.constFirst()->symbol(), screen.symbol);
                // Only the spinner on screen runs; the others keep the application idle.
                const QList<BusySpinner*> spinners = shown<BusySpinner>(view);
                QCOMPARE(spinners.size(), screen.busy ? 1 : 0);
                for (const BusySpinner* spinner : view.findChildren<BusySpinner*>())
                    QCOMPARE(spinner->isSpinning(), spinners.contains(spinner));
            }
        }
    }

    void buttonsReachTheApplication() {
        AppTestKit kit;
        NubraWindows::install(&kit.services);
        NubraWindows::showPermissionFlow(*kit.state);
        QPointer<QWidget> window = NubraWindows::permissionWindow();
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

    // Each time the guide comes on screen it names the applications running without their tree, found
    // off the GUI thread.
    void guideNamesTreelessApplications() {
        auto restore = qScopeGuard([] { L10n::setOverride(u"en"_qs); });
        AppTestKit kit;
        kit.fake.treeless.apps = {{u"Google Chrome"_qs, TreelessApp::Kind::chromiumBrowser, 10},
                                  {u"Slack"_qs, TreelessApp::Kind::electron, 11}};
        NubraWindows::install(&kit.services);
        NubraWindows::showPermissionFlow(*kit.state);
        QPointer<QWidget> window = NubraWindows::permissionWindow();
        kit.fake.tasks.drain();
        QCOMPARE(kit.fake.treeless.scans, 0);

        kit.settings().setPermissionPhase(PermissionPhase::active);
        auto* running = child<QLabel>(*window, "treelessRunning");
        QVERIFY(!running->isVisibleTo(window));
        kit.fake.tasks.drain();
        QCOMPARE(kit.fake.treeless.scans, 1);
        QVERIFY(running->isVisibleTo(window));
        QCOMPARE(running->text(), u"Running now without the switch: Google Chrome, Slack."_qs);

        L10n::setOverride(u"zh"_qs);
        window->hide();
        NubraWindows::showPermissionFlow(*kit.state);
        kit.fake.tasks.drain();
        QCOMPARE(running->text(), u"正在运行、未加开关的：Google Chrome、Slack。"_qs);

        kit.fake.treeless.apps.clear();
        window->hide();
        NubraWindows::showPermissionFlow(*kit.state);
        kit.fake.tasks.drain();
        QCOMPARE(kit.fake.treeless.scans, 3);
        QVERIFY(!running->isVisibleTo(window));
    }

    void windowIsReusedAndFitsItsScreens() {
        AppTestKit kit;
        NubraWindows::install(&kit.services);
        NubraWindows::showPermissionFlow(*kit.state);
        QPointer<QWidget> window = NubraWindows::permissionWindow();
        QTRY_COMPARE(QGuiApplication::focusWindow(), window->windowHandle());
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

        // It goes with the services (coming back once closed is tst_settingsview's, for every window).
        NubraWindows::install(nullptr);
        QVERIFY(!window);

        // A larger desktop font: the window grows until every screen fits, in both languages.
        const QFont font = QApplication::font();
        auto restore = qScopeGuard([font] {
            QApplication::setFont(font);
            L10n::setOverride(u"en"_qs);
        });
        QFont large = font;
        large.setPointSizeF(14);
        QApplication::setFont(large);
        // So many applications without their tree that the guide becomes the tallest screen.
        for (int i = 0; i < 12; ++i)
            kit.fake.treeless.apps << TreelessApp{u"Electron Application %1"_qs.arg(i),
                                                  TreelessApp::Kind::electron, i};
        for (const QString& language : {u"en"_qs, u"zh"_qs}) {
            L10n::setOverride(language);
            NubraWindows::install(nullptr);
            NubraWindows::install(&kit.services);
            NubraWindows::showPermissionFlow(*kit.state);
            window = NubraWindows::permissionWindow();
            QVERIFY(window->height() > 320);
            for (const Screen& screen : screens) {
                kit.settings().setPermissionPhase(screen.phase);
                kit.fake.tasks.drain();               // the guide's list of applications without their tree
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

    // Where it shows and that it keeps away from the focus is seen on the desktop (app_desktop).
    void welcomeShowsOnceForAWhile() {
        AppTestKit kit;
        NubraWindows::install(&kit.services);
        NubraWindows::showWelcome();
        QPointer<QWidget> panel = NubraWindows::welcomePanel();
        QVERIFY(panel && panel->isVisible());
        NubraWindows::showWelcome();
        QCOMPARE(NubraWindows::welcomePanel(), panel.data());
        kit.fake.clock.advance(NubraWindows::welcomeShownMs - 1);
        QVERIFY(panel->isVisible());
        kit.fake.clock.advance(1);
        QTRY_VERIFY(!panel);
        // Once per process: asking again shows nothing.
        NubraWindows::showWelcome();
        QVERIFY(!NubraWindows::welcomePanel());
        NubraWindows::install(nullptr);

        WelcomeView view;
        QSignalSpy closing(&view, &WelcomeView::closeRequested);
        click(view, "closeButton");
        QCOMPARE(closing.count(), 1);
    }
};

QTEST_MAIN(OnboardingTest)
#include "tst_onboarding.moc"
