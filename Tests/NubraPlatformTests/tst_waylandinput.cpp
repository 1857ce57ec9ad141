#include "NubraPlatform/wayland/DataControlPrimarySelection.h"
#include "NubraPlatform/wayland/KeymapLookup.h"
#include "NubraPlatform/wayland/PipeReader.h"
#include "NubraPlatform/wayland/VirtualKeyboard.h"
#include "NubraPlatform/wayland/WaylandConnection.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>

#include <xkbcommon/xkbcommon-keysyms.h>
#include <xkbcommon/xkbcommon.h>

#include <linux/input-event-codes.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

class WaylandInputTest : public QObject {
    Q_OBJECT

private slots:
    void keysAreFoundWhereTheLayoutPutsThem() {
        const KeymapLookup us(KeymapLookup::keymapForLayout("us"));
        QVERIFY(us.valid());
        QCOMPARE(us.find(XKB_KEY_Control_L)->evdevCode, quint32(KEY_LEFTCTRL));
        QCOMPARE(us.find(XKB_KEY_c)->evdevCode, quint32(KEY_C));
        QCOMPARE(us.find(XKB_KEY_A)->level, quint32(1));
        QVERIFY(us.modifierMask(XKB_MOD_NAME_CTRL) != 0);
        // AZERTY has its `a` where QWERTY has `q`.
        const KeymapLookup french(KeymapLookup::keymapForLayout("fr"));
        QCOMPARE(french.find(XKB_KEY_a)->evdevCode, quint32(KEY_Q));
        QVERIFY(!KeymapLookup("not a keymap").valid());
        QVERIFY(!KeymapLookup("not a keymap").find(XKB_KEY_c));
    }

    void pipeReadsAreBounded() {
        {
            Pipe whole;
            [[maybe_unused]] const ssize_t written = write(whole.writeEnd(), "selected", 8);
            whole.closeWriteEnd();
            QCOMPARE(readPipe(whole.readEnd(), 8, 500), std::optional(QByteArray("selected")));
        }
        // Too much: refused whole. Still open after that: the deadline ends the wait.
        Pipe pipe;
        const QByteArray bytes(3000, 'x');
        [[maybe_unused]] const ssize_t written =
            write(pipe.writeEnd(), bytes.constData(), size_t(bytes.size()));
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(readPipe(pipe.readEnd(), 2999, 5000), std::nullopt);
        QVERIFY(timer.elapsed() < 1000);
        timer.restart();
        QCOMPARE(readPipe(pipe.readEnd(), 10000, 200), std::nullopt);
        QVERIFY(timer.elapsed() >= 190 && timer.elapsed() < 1000);
    }

    void noCompositorIsAnAnswer() {
        QTemporaryDir runtime;
        // A socket that accepts and never answers, like a compositor that hangs.
        const QByteArray path = runtime.filePath(QStringLiteral("wayland-hung")).toLocal8Bit();
        const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path, path.constData(), size_t(path.size()));
        QCOMPARE(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        QCOMPARE(listen(listener, 1), 0);

        for (const QByteArray& display :
             {QByteArray(), runtime.filePath(QStringLiteral("absent")).toLocal8Bit(), path}) {
            qputenv("WAYLAND_DISPLAY", display);
            QElapsedTimer timer;
            timer.start();
            {
                WaylandConnection connection;
                const WaylandGlobals globals = connection.globals();
                QVERIFY(!globals.extDataControl && !globals.wlrDataControl && !globals.virtualKeyboard);
                QCOMPARE(DataControlPrimarySelection(connection).text(), std::nullopt);
                QVERIFY(!VirtualKeyboard(connection).beginCopy());
            }
            QVERIFY2(timer.elapsed() < WaylandConnection::startTimeoutMs + 2 * VirtualKeyboard::timeoutMs +
                                           2 * DataControlPrimarySelection::readTimeoutMs + 500,
                     display.constData());
        }
        close(listener);
        qunsetenv("WAYLAND_DISPLAY");
    }
};

QTEST_GUILESS_MAIN(WaylandInputTest)
#include "tst_waylandinput.moc"
