// The tray as the application makes it, on a simulated capture desktop, for shell_desktop.py. Settings
// live under the XDG directories the test gives it. Reports on stdout, one line each:
//   STARTED                    the tray object exists (no tray call made yet)
//   SHOWN                      the tray icon was made and shown
//   GEOMETRY x y w h           where the icon is in an XEmbed tray, again each time it moves
//   MENU                       the menu is about to open
//   MENU_CLOSED                the menu has closed
//   TRIGGERED <item>           an item of the menu or a submenu was chosen
// NUBRA_TEST_LANGUAGE ("zh" or "en") overrides the interface language.
#include "NubraApp/Foundation/AppState.h"
#include "NubraApp/Shell/TrayIcon.h"
#include "NubraCore/Service/SecretStore.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "NubraPlatform/fake/FakeDesktop.h"

#include <QApplication>
#include <QStandardPaths>
#include <QSystemTrayIcon>
#include <QThreadPool>
#include <QTimer>

#include <cstdio>

namespace {

void report(const QString& line) {
    std::printf("%s\n", qPrintable(line));
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    if (const QString language = qEnvironmentVariable("NUBRA_TEST_LANGUAGE"); !language.isEmpty())
        L10n::setOverride(language);

    SettingsDefaults defaults;
    InMemorySecretStore secrets;
    FakeDesktop fake;
    const QString data = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    auto state = std::make_unique<AppState>(defaults, secrets, QUrl(QStringLiteral("https://gloss.example")),
                                            data + QStringLiteral("/history.sqlite3"));
    auto tray = std::make_unique<TrayIcon>(*state, fake.desktop());

    QObject::connect(tray.get(), &TrayIcon::shown, [&] {
        report(QStringLiteral("SHOWN"));
        // An XEmbed tray takes the icon some time after it is shown, and the icon may have a place of
        // its own before that.
        auto* poll = new QTimer(tray.get());
        QObject::connect(poll, &QTimer::timeout, [&tray, last = QRect()]() mutable {
            const QRect area = tray->systemTrayIcon()->geometry();
            if (area.isEmpty() || area == last)
                return;
            last = area;
            report(QStringLiteral("GEOMETRY %1 %2 %3 %4")
                       .arg(area.x())
                       .arg(area.y())
                       .arg(area.width())
                       .arg(area.height()));
        });
        poll->start(100);
    });
    QObject::connect(&tray->menu(), &QMenu::aboutToShow, [] { report(QStringLiteral("MENU")); });
    QObject::connect(&tray->menu(), &QMenu::aboutToHide, [] { report(QStringLiteral("MENU_CLOSED")); });
    // A submenu's choice reaches the top menu too.
    QObject::connect(&tray->menu(), &QMenu::triggered,
                     [](QAction* action) { report(QStringLiteral("TRIGGERED ") + action->objectName()); });
    report(QStringLiteral("STARTED"));

    const int code = QApplication::exec();
    state->persist(); // as the application does on its way out
    defaults.sync();
    tray.reset();
    QThreadPool::globalInstance()->waitForDone();
    return code;
}
