#include "NubraApp/Shell/NubraWindows.h"

#include "NubraApp/History/HistoryView.h"
#include "NubraApp/Settings/SettingsView.h"
#include "NubraApp/Shell/AppState.h"
#include "NubraApp/Shell/HistoryNotifier.h"
#include "NubraCore/Support/DebugLog.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QPointer>
#include <QProcess>
#include <QScreen>
#include <QVBoxLayout>
#include <QWidget>

namespace NubraWindows {

namespace {
Services* theServices = nullptr;
QPointer<QWidget> theHistoryWindow;
QPointer<QWidget> theSettingsWindow;

// Creating a window and every later request to see it: out of the minimised state, in front, active.
void bringForward(QWidget* window) {
    window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
    window->show();
    window->raise();
    window->activateWindow();
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
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        window->move(screen->availableGeometry().center() - window->rect().center());
    // The view reads the state's store: it must not outlive it.
    QObject::connect(&state, &QObject::destroyed, window, [window] { delete window; });
    return window;
}

QWidget* makeSettingsWindow(AppState& state, std::optional<SettingsTab> initialTab) {
    auto* window = new QWidget(nullptr, Qt::Window | Qt::WindowTitleHint | Qt::WindowCloseButtonHint |
                                            Qt::WindowMinimizeButtonHint);
    window->setObjectName(QStringLiteral("settingsWindow"));
    window->setWindowTitle(SettingsView::windowTitleText());
    auto* layout = new QVBoxLayout(window);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(new SettingsView(state, *theServices, initialTab, window));
    // 460 x 520, or what the longest texts need, and not resizable.
    window->setFixedSize(QSize(460, 520).expandedTo(window->minimumSizeHint()));
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        window->move(screen->availableGeometry().center() - window->rect().center());
    QObject::connect(&state, &QObject::destroyed, window, [window] { delete window; });
    return window;
}

} // namespace

void install(Services* services) {
    theServices = services;
    // The settings window works with these services: it must not outlive them.
    if (!services)
        delete theSettingsWindow;
}

std::optional<SettingsTab> settingsTabFrom(const QString& name) {
    if (name == u"general")
        return SettingsTab::general;
    if (name == u"gloss")
        return SettingsTab::gloss;
    if (name == u"privacy")
        return SettingsTab::privacy;
    if (name == u"about")
        return SettingsTab::about;
    return std::nullopt;
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

void showPermissionFlow(AppState&) {
    nbDebug(QStringLiteral("windows: showPermissionFlow"));
}

void showWelcome() {
    nbDebug(QStringLiteral("windows: showWelcome"));
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
