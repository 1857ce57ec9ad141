#include "NubraPlatform/linux/AtspiAccessibility.h"

#include <QTest>

class LinuxAtspiWindowsTest : public QObject {
    Q_OBJECT

private slots:
    void eachElementCountsFromTheWindowItsProcessShows() {
        const QRect x11Window(10, 20, 300, 200);
        const QRect swayWindow(600, 25, 400, 300);
        AtspiWindows windows{[=] { return std::optional<QRect>(x11Window); }, {}, {}};

        // An X11 session: every element is in an X11 window, whatever its process.
        for (const std::optional<qint64> process : {std::optional<qint64>(7), std::optional<qint64>()}) {
            const AtspiTextNode::Window window = windows.windowOf(process);
            QVERIFY(!window.wayland);
            QCOMPARE(window.rect(), x11Window);
        }

        // A Wayland session: process 7 shows an XWayland window, the others are native Wayland clients.
        windows.showsX11Window = [](qint64 process) { return process == 7; };
        QVERIFY(!windows.windowOf(7).wayland);
        QCOMPARE(windows.windowOf(7).rect(), x11Window);
        // GNOME tells no window's place: nothing to count from, not the X11 window's place.
        QVERIFY(windows.windowOf(8).wayland && !windows.windowOf(8).rect);
        QVERIFY(windows.windowOf(std::nullopt).wayland);
        windows.focusedWaylandWindow = [=] { return std::optional<QRect>(swayWindow); };
        QCOMPARE(windows.windowOf(8).rect(), swayWindow);
    }
};

QTEST_APPLESS_MAIN(LinuxAtspiWindowsTest)
#include "tst_linuxatspiwindows.moc"
