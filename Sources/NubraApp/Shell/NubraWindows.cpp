#include "NubraApp/Shell/NubraWindows.h"

#include "NubraApp/Capture/SessionCapabilities.h"
#include "NubraApp/Foundation/AppServices.h"
#include "NubraApp/Foundation/AppState.h"
#include "NubraApp/Foundation/HistoryNotifier.h"
#include "NubraApp/History/HistoryView.h"
#include "NubraApp/Onboarding/PermissionFlowView.h"
#include "NubraApp/Onboarding/WelcomeView.h"
#include "NubraApp/Settings/SettingsView.h"
#include "NubraApp/Update/UpdateNoticeView.h"
#include "NubraCore/Support/DebugLog.h"
#include "NubraPlatform/Accessibility.h"
#include "NubraPlatform/Clock.h"
#include "NubraPlatform/Desktop.h"
#include "NubraPlatform/DesktopCapabilities.h"
#include "NubraPlatform/PlatformDesktop.h"
#include "NubraPlatform/TaskRunner.h"
#include "NubraPlatform/TreelessApplications.h"
#include "NubraPlatform/linux/X11Managers.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QPointer>
#include <QProcess>
#include <QScreen>
#include <QVBoxLayout>
#include <QWidget>

#include <algorithm>

namespace NubraWindows {

namespace {
AppServices* theServices = nullptr;
QPointer<QWidget> theHistoryWindow;
QPointer<QWidget> thePermissionWindow;
QPointer<QWidget> theWelcomePanel;
std::optional<Clock::TaskId> theWelcomeHiding;
// The welcome notice is offered once per process, whatever became of its panel.
bool welcomeOffered = false;
QPointer<QWidget> theSettingsWindow;
QPointer<QWidget> theUpdateNotice;

// Creating a window and every later request to see it: out of the minimised state, in front, and
// active unless the focus is to stay where it is.
void bringForward(QWidget* window, Focus focus = Focus::take) {
    window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
    window->setAttribute(Qt::WA_ShowWithoutActivating, focus == Focus::leave);
    window->show();
    window->raise();
    if (focus == Focus::take)
        window->activateWindow();
}

void centre(QWidget* window) {
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        window->move(screen->availableGeometry().center() - window->rect().center());
}

// A new window in the middle of the screen; its view reads the state, so it must not outlive it.
QWidget* centredWithState(QWidget* window, AppState& state) {
    centre(window);
    QObject::connect(&state, &QObject::destroyed, window, [window] { delete window; });
    return window;
}

QWidget* makeHistoryWindow(AppState& state) {
    auto* window = new QWidget(nullptr, Qt::Window);
    window->setObjectName(QStringLiteral("historyWindow"));
    window->setWindowTitle(HistoryView::windowTitleText());
    auto* layout = new QVBoxLayout(window);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(new HistoryView(state, window));
    // 520 x 560, widened to what the view needs so that its buttons are never cut off.
    window->resize(QSize(520, 560).expandedTo(window->minimumSizeHint()));
    return centredWithState(window, state);
}

// 400 x 320, taller or wider only where the tallest screen needs it in the interface language.
void fitPermissionWindow(QWidget* window) {
    const int width = std::max(400, window->minimumSizeHint().width());
    window->setFixedSize(width, std::max(320, window->heightForWidth(width)));
}

// The guide names the applications running without their accessibility tree; finding them walks the
// process table, off the GUI thread.
void listTreelessApplications(PermissionFlowView* view) {
    if (!theServices)
        return;
    const Desktop desktop = theServices->desktop;
    desktop.tasks.runInBackground([desktop, view = QPointer<PermissionFlowView>(view)] {
        QStringList names;
        for (const TreelessApp& app : desktop.treelessApplications.running())
            names << app.name;
        desktop.tasks.runOnMain([view, names] {
            if (!view)
                return;
            view->showTreelessApplications(names);
            fitPermissionWindow(view->window());
        });
    });
}

QWidget* makePermissionWindow(AppState& state) {
    auto* window = new QWidget(nullptr, Qt::Window);
    window->setObjectName(QStringLiteral("permissionWindow"));
    window->setWindowTitle(PermissionFlowView::windowTitleText());
    auto* layout = new QVBoxLayout(window);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* view = new PermissionFlowView(state.settings(), window);
    layout->addWidget(view);
    QObject::connect(view, &PermissionFlowView::openSettingsRequested, window, [] {
        if (theServices)
            theServices->desktop.accessibility.openSettings();
    });
    QObject::connect(view, &PermissionFlowView::restartRequested, window, [] { restartApp(); });
    QObject::connect(view, &PermissionFlowView::closeRequested, window, &QWidget::hide);
    QObject::connect(view, &PermissionFlowView::guideShown, window,
                     [view] { listTreelessApplications(view); });
    // The guide says what works in this session, and what the user can do where something needs a step.
    if (theServices)
        view->showDesktopCapabilities(SessionCapabilities::now(theServices->desktop).report());
    fitPermissionWindow(window);
    return centredWithState(window, state);
}

QWidget* makeSettingsWindow(AppState& state, std::optional<SettingsTab> initialTab) {
    // Titled and closable only, like the history window.
    auto* window = new QWidget(nullptr, Qt::Window | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);
    window->setObjectName(QStringLiteral("settingsWindow"));
    window->setWindowTitle(SettingsView::windowTitleText());
    auto* layout = new QVBoxLayout(window);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(new SettingsView(state, *theServices, initialTab, window));
    // 460 x 520, or what the longest texts need, and not resizable.
    window->setFixedSize(QSize(460, 520).expandedTo(window->minimumSizeHint()));
    return centredWithState(window, state);
}

QWidget* makeWelcomePanel() {
    // Like the selection bubble: a frameless tool window that never takes the keyboard focus from the
    // application the user is in.
    auto* panel = new QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                                           Qt::WindowDoesNotAcceptFocus | PlatformDesktop::floatingPanelHints());
    panel->setObjectName(QStringLiteral("welcomePanel"));
    panel->setAttribute(Qt::WA_ShowWithoutActivating);
    panel->setFocusPolicy(Qt::NoFocus);
    // Must be decided before the native window exists: it picks the window's visual.
    if (X11Managers::compositorRunning())
        panel->setAttribute(Qt::WA_TranslucentBackground);
    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* view = new WelcomeView(panel);
    layout->addWidget(view);
    // Offered once per process, so once out of sight it goes for good, with its window and pixels.
    panel->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(view, &WelcomeView::closeRequested, panel, &QWidget::close);
    panel->setFixedSize(WelcomeView::cardWidth, std::max(88, panel->heightForWidth(WelcomeView::cardWidth)));
    return panel;
}
} // namespace

void install(AppServices* services) {
    // The windows that work with these services must not outlive them.
    if (!services) {
        if (theServices && theWelcomeHiding)
            theServices->desktop.clock.cancel(*theWelcomeHiding);
        theWelcomeHiding.reset();
        delete thePermissionWindow.data();
        delete theWelcomePanel.data();
        delete theSettingsWindow.data();
        delete theUpdateNotice.data();
    }
    theServices = services;
}

void showSettings(AppState& state, std::optional<SettingsTab> initialTab) {
    if (!theServices) {
        nbDebug(QStringLiteral("windows: showSettings before the application is up"));
        return;
    }
    if (!theSettingsWindow)
        theSettingsWindow = makeSettingsWindow(state, initialTab);
    bringForward(theSettingsWindow);
}

QWidget* settingsWindow() {
    return theSettingsWindow;
}

void showHistory(AppState& state) {
    if (!theHistoryWindow)
        theHistoryWindow = makeHistoryWindow(state);
    // Closing only hides the window, so the keyword and the last message survive a reopen.
    bringForward(theHistoryWindow);
    HistoryNotifier::shared().post();
}

QWidget* historyWindow() {
    return theHistoryWindow;
}

void showPermissionFlow(AppState& state, Focus focus) {
    nbDebug(QStringLiteral("windows: showPermissionFlow"));
    if (!theServices)
        return; // its buttons need the running application
    if (thePermissionWindow && thePermissionWindow->isVisible() && !thePermissionWindow->isMinimized())
        return;
    if (!thePermissionWindow)
        thePermissionWindow = makePermissionWindow(state);
    bringForward(thePermissionWindow, focus);
}

void closePermissionFlow() {
    if (thePermissionWindow)
        thePermissionWindow->hide();
}

QWidget* permissionWindow() {
    return thePermissionWindow;
}

void showWelcome() {
    nbDebug(QStringLiteral("windows: showWelcome"));
    const QScreen* screen = QGuiApplication::primaryScreen();
    if (welcomeOffered || !theServices || !screen)
        return;
    welcomeOffered = true;
    theWelcomePanel = makeWelcomePanel();
    // The top right corner of the work area, just under a top panel.
    const QRect area = screen->availableGeometry();
    theWelcomePanel->move(area.x() + area.width() - theWelcomePanel->width() - 16, area.y() + 6);
    theWelcomePanel->show();
    theWelcomeHiding = theServices->desktop.clock.schedule(welcomeShownMs, [] {
        theWelcomeHiding.reset();
        if (theWelcomePanel)
            theWelcomePanel->close();
    });
}

QWidget* welcomePanel() {
    return theWelcomePanel;
}

void showUpdateNotice(const QString& text, bool isError) {
    delete theUpdateNotice.data();
    // A titled tool window above the others that does not take the focus from where the user is.
    auto* panel = new QWidget(nullptr, Qt::Tool | Qt::WindowTitleHint | Qt::WindowCloseButtonHint |
                                           Qt::WindowStaysOnTopHint);
    panel->setObjectName(QStringLiteral("updateNoticePanel"));
    panel->setAttribute(Qt::WA_DeleteOnClose);
    panel->setAttribute(Qt::WA_ShowWithoutActivating);
    panel->setWindowTitle(UpdateNoticeView::windowTitleText());
    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(new UpdateNoticeView(text, isError, panel));
    const int height = panel->heightForWidth(UpdateNoticeView::viewWidth);
    panel->setFixedSize(UpdateNoticeView::viewWidth, height > 0 ? height : panel->sizeHint().height());
    centre(panel);
    theUpdateNotice = panel;
    panel->show();
    panel->raise();
}

QWidget* updateNoticePanel() {
    return theUpdateNotice;
}

void restartApp() {
    // The new instance finds this one still running and would hand its arguments over: let it wait
    // for the single-instance socket to be released instead.
    QStringList arguments = QCoreApplication::arguments().mid(1);
    arguments.prepend(QStringLiteral("--replace"));
    QProcess::startDetached(QCoreApplication::applicationFilePath(), arguments);
    QCoreApplication::quit();
}

} // namespace NubraWindows
