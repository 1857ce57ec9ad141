#include "NubraApp/Shell/NubraWindows.h"

#include "NubraApp/Shell/HistoryNotifier.h"
#include "NubraCore/Support/DebugLog.h"

#include <QCoreApplication>
#include <QProcess>

namespace NubraWindows {

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

// The windows themselves are still being built; until then each call is logged.
void showSettings(AppState&, std::optional<SettingsTab> initialTab) {
    nbDebug(QStringLiteral("windows: showSettings tab=%1").arg(initialTab ? int(*initialTab) : -1));
}

void showHistory(AppState&) {
    nbDebug(QStringLiteral("windows: showHistory"));
    HistoryNotifier::shared().post();
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
