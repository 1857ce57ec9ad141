#include "NubraCore/Capture/Pasteboard.h"
#include "NubraPlatform/fake/FakeGlobalHotkeys.h"
#include "NubraPlatform/fake/FakeKeyboard.h"
#include "NubraPlatform/wayland/PortalHotkeys.h"
#include "NubraPlatform/wayland/PortalKeyboard.h"
#include "NubraPlatform/wayland/PortalScreenshot.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <optional>

// The portal pieces against fake_portal.py, a scriptable portal on a private session bus of the suite's
// own: a real D-Bus conversation with the Request/Response pattern, without a desktop.
class WaylandPortalTest : public QObject {
    Q_OBJECT

    static constexpr quint32 signature = 0x4E425241;
    static constexpr quint32 keyG = 5, keySpace = 49;
    static constexpr quint32 option = 0x800, shift = 0x200, control = 0x1000;
    static constexpr Portal::Deadlines deadlines{1500, 1500, 1500};

    QProcess m_daemon;
    QProcess m_portal;
    std::optional<QDBusConnection> m_bus;

    void call(const QString& method, const QVariantList& arguments = {}) {
        QDBusMessage message =
            QDBusMessage::createMethodCall(Portal::service, QStringLiteral("/org/nubra/test"),
                                           QStringLiteral("org.nubra.test.FakePortal"), method);
        message.setArguments(arguments);
        const QDBusMessage reply = m_bus->call(message, QDBus::Block, 5000);
        QVERIFY2(reply.type() == QDBusMessage::ReplyMessage, qPrintable(reply.errorMessage()));
    }

    // What the portal was asked, one line a call, those starting with `prefix`.
    QStringList calls(const QString& prefix) {
        QDBusMessage message = QDBusMessage::createMethodCall(
            Portal::service, QStringLiteral("/org/nubra/test"), QStringLiteral("org.nubra.test.FakePortal"),
            QStringLiteral("Calls"));
        const QDBusMessage reply = m_bus->call(message, QDBus::Block, 5000);
        return reply.arguments().value(0).toStringList().filter(
            QRegularExpression(u'^' + QRegularExpression::escape(prefix)));
    }

    QString lastSession() {
        const QStringList created = calls(QStringLiteral("GlobalShortcuts.CreateSession"));
        return created.isEmpty() ? QString() : created.last().section(u' ', 1);
    }

    static std::optional<GlobalHotkeys::DesktopBinding::State> state(const PortalHotkeys& hotkeys) {
        const auto binding = hotkeys.desktopBinding();
        return binding ? std::optional(binding->state) : std::nullopt;
    }

private slots:
    void initTestCase() {
        m_daemon.start(
            QStringLiteral("dbus-daemon"),
            {QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--print-address=1")});
        if (!m_daemon.waitForStarted(5000) || !m_daemon.waitForReadyRead(5000))
            QSKIP("skipped: no dbus-daemon for a private session bus (package dbus-daemon)");
        const QString address = QString::fromUtf8(m_daemon.readLine()).trimmed();
        m_portal.start(QStringLiteral("/usr/bin/python3"), {QStringLiteral(FAKE_PORTAL), address});
        if (!m_portal.waitForReadyRead(10000) || !m_portal.readLine().startsWith("ready"))
            QSKIP("skipped: the fake portal did not start (packages python3-gi, gir1.2-glib-2.0)");
        m_bus = QDBusConnection::connectToBus(address, QStringLiteral("portal-test"));
        QVERIFY(m_bus->isConnected());
    }

    void cleanupTestCase() {
        for (QProcess* process : {&m_portal, &m_daemon}) {
            process->kill();
            process->waitForFinished(5000);
        }
    }

    void init() { call(QStringLiteral("Reset")); }

    void portalBindsFiresRebindsAndReleases() {
        FakeGlobalHotkeys grab;
        PortalHotkeys hotkeys(grab, *m_bus, deadlines);
        QList<quint32> fired;
        hotkeys.installHandler([&fired](quint32 firedSignature, quint32 id) {
            if (firedSignature == signature)
                fired << id;
        });

        const GlobalHotkeys::Registered first = hotkeys.registerHotKey(keyG, option, signature, 1);
        QCOMPARE(first.status, 0);
        QCOMPARE(grab.hotKeys(), 1); // until the portal answers, the grab holds the key
        QTRY_COMPARE_WITH_TIMEOUT(state(hotkeys), GlobalHotkeys::DesktopBinding::State::bound, 5000);
        QCOMPARE(hotkeys.desktopBinds(), true);
        QCOMPARE(grab.hotKeys(), 0);
        QCOMPARE(hotkeys.desktopBinding()->trigger, QStringLiteral("ALT+g"));
        const QString firstSession = lastSession();
        QCOMPARE(calls(QStringLiteral("GlobalShortcuts.BindShortcuts")).value(0).section(u' ', 1, 3),
                 firstSession + QStringLiteral(" lookup ALT+g"));
        call(QStringLiteral("Activate"), {QString(), QStringLiteral("lookup")});
        QTRY_COMPARE_WITH_TIMEOUT(fired, QList<quint32>{1}, 5000);

        // Another key: the first session is closed and a new one asks for the new key. The user picks a
        // third one in the desktop's dialog, and that is the one shown.
        call(QStringLiteral("Pick"), {QStringLiteral("CTRL+F12")});
        hotkeys.unregisterHotKey(first.hotKey);
        const GlobalHotkeys::Registered second =
            hotkeys.registerHotKey(keySpace, control | shift, signature, 3);
        QTRY_COMPARE_WITH_TIMEOUT(state(hotkeys), GlobalHotkeys::DesktopBinding::State::bound, 5000);
        QCOMPARE(hotkeys.desktopBinding()->trigger, QStringLiteral("CTRL+F12"));
        QCOMPARE(calls(QStringLiteral("Session.Close")),
                 QStringList{QStringLiteral("Session.Close ") + firstSession});
        QVERIFY(calls(QStringLiteral("GlobalShortcuts.BindShortcuts"))
                    .value(1)
                    .contains(QStringLiteral(" lookup CTRL+SHIFT+space ")));
        // The closed session's activations are not ours; signals arrive in order, so once the second is
        // seen the first has been passed over.
        call(QStringLiteral("Activate"), {firstSession, QStringLiteral("lookup")});
        call(QStringLiteral("Activate"), {QString(), QStringLiteral("lookup")});
        QTRY_COMPARE_WITH_TIMEOUT(fired, (QList<quint32>{1, 3}), 5000);

        const QString secondSession = lastSession();
        hotkeys.unregisterHotKey(second.hotKey);
        QVERIFY(!hotkeys.desktopBinding());
        QTRY_COMPARE_WITH_TIMEOUT(calls(QStringLiteral("Session.Close")).value(1),
                                  QStringLiteral("Session.Close ") + secondSession, 5000);
    }

    // The key for text on the screen is a shortcut of its own, which the desktop lists by its own name;
    // the key shown under the lookup's hot key stays the lookup's.
    void theKeyForTextOnScreenIsASecondShortcut() {
        FakeGlobalHotkeys grab;
        PortalHotkeys hotkeys(grab, *m_bus, deadlines);
        QList<quint32> fired;
        hotkeys.installHandler([&fired](quint32, quint32 id) { fired << id; });
        hotkeys.registerHotKey(keyG, option, signature, GlobalHotkeys::lookupKeyId);
        QTRY_COMPARE_WITH_TIMEOUT(state(hotkeys), GlobalHotkeys::DesktopBinding::State::bound, 5000);
        hotkeys.registerHotKey(keySpace, control | shift, signature, GlobalHotkeys::screenTextKeyId);
        QTRY_COMPARE_WITH_TIMEOUT(calls(QStringLiteral("GlobalShortcuts.BindShortcuts")).size(), 2, 5000);
        const QString screenTextSession = lastSession();
        QVERIFY(calls(QStringLiteral("GlobalShortcuts.BindShortcuts"))
                    .value(1)
                    .startsWith(QStringLiteral("GlobalShortcuts.BindShortcuts ") + screenTextSession +
                                QStringLiteral(" ocr CTRL+SHIFT+space Explain text on the screen")));
        QCOMPARE(hotkeys.desktopBinding()->trigger, QStringLiteral("ALT+g"));
        call(QStringLiteral("Activate"), {screenTextSession, QStringLiteral("ocr")});
        call(QStringLiteral("Activate"), {screenTextSession, QStringLiteral("lookup")});
        QTRY_COMPARE_WITH_TIMEOUT(fired, QList<quint32>{GlobalHotkeys::screenTextKeyId}, 5000);
    }

    // The picture is read from the file the portal wrote, which is then removed: no picture of the screen
    // stays behind. A declined dialog is no failure to tell of.
    void screenshotIsReadAndItsFileRemoved() {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("Screenshot.png"));
        QImage picture(64, 32, QImage::Format_RGB32);
        picture.fill(Qt::red);
        QVERIFY(picture.save(path));
        call(QStringLiteral("Picture"), {path});
        PortalScreenshot screenshot(*m_bus, deadlines);
        QObject context;
        const auto take = [&] {
            std::optional<ScreenPicture::Result> result;
            screenshot.take(&context, [&result](ScreenPicture::Result taken) { result = std::move(taken); });
            [&] { QTRY_VERIFY_WITH_TIMEOUT(result, 5000); }();
            return result.value_or(ScreenPicture::Result{});
        };

        const ScreenPicture::Result taken = take();
        QCOMPARE(taken.shots.size(), 1u);
        QCOMPARE(taken.shots[0].image.pixelColor(3, 3), QColor(Qt::red));
        QVERIFY(!QFile::exists(path));
        QCOMPARE(calls(QStringLiteral("Screenshot.")),
                 QStringList{QStringLiteral("Screenshot.Screenshot interactive=True")});

        call(QStringLiteral("Script"), {QStringLiteral("Screenshot"), QStringLiteral("cancel")});
        const ScreenPicture::Result declined = take();
        QVERIFY(declined.shots.empty());
        QVERIFY(declined.failure.isEmpty());
        call(QStringLiteral("Script"), {QStringLiteral("Screenshot"), QStringLiteral("fail")});
        QVERIFY(!take().failure.isEmpty());
        // The file is gone now: what the portal names cannot be read.
        call(QStringLiteral("Script"), {QStringLiteral("Screenshot"), QStringLiteral("answer")});
        QVERIFY(!take().failure.isEmpty());
    }

    void nothingIsBoundWhenTheDesktopSaysNo_data() {
        QTest::addColumn<QString>("method");
        QTest::addColumn<QString>("behaviour");
        QTest::addColumn<GlobalHotkeys::DesktopBinding::State>("expected");
        using State = GlobalHotkeys::DesktopBinding::State;
        QTest::newRow("dialog cancelled")
            << QStringLiteral("BindShortcuts") << QStringLiteral("cancel") << State::declined;
        QTest::newRow("left unbound in the dialog")
            << QStringLiteral("Pick") << QStringLiteral("none") << State::declined;
        QTest::newRow("binding fails")
            << QStringLiteral("BindShortcuts") << QStringLiteral("fail") << State::failed;
        QTest::newRow("no session") << QStringLiteral("CreateSession") << QStringLiteral("fail")
                                    << State::failed;
        QTest::newRow("never answers")
            << QStringLiteral("BindShortcuts") << QStringLiteral("silent") << State::failed;
        QTest::newRow("never replies")
            << QStringLiteral("CreateSession") << QStringLiteral("hang") << State::failed;
    }

    void nothingIsBoundWhenTheDesktopSaysNo() {
        QFETCH(QString, method);
        QFETCH(QString, behaviour);
        QFETCH(GlobalHotkeys::DesktopBinding::State, expected);
        if (method == QStringLiteral("Pick"))
            call(method, {behaviour});
        else
            call(QStringLiteral("Script"), {method, behaviour});
        FakeGlobalHotkeys grab;
        PortalHotkeys hotkeys(grab, *m_bus, deadlines);
        QCOMPARE(hotkeys.registerHotKey(keyG, option, signature, 1).status, 0);
        QTRY_COMPARE_WITH_TIMEOUT(state(hotkeys), expected, 5000);
        // Said once: no second session, and the grab does not come back to fire beside the portal.
        QCOMPARE(calls(QStringLiteral("GlobalShortcuts.CreateSession")).size(), 1);
        QCOMPARE(grab.hotKeys(), 0);
    }

    void withoutThePortalTheGrabKeepsTheKey() {
        call(QStringLiteral("Offer"), {QStringList{}});
        FakeGlobalHotkeys grab;
        PortalHotkeys hotkeys(grab, *m_bus, deadlines);
        int fired = 0;
        hotkeys.installHandler([&fired](quint32, quint32) { ++fired; });
        QCOMPARE(hotkeys.registerHotKey(keyG, option, signature, 1).status, 0);
        QTRY_COMPARE_WITH_TIMEOUT(hotkeys.desktopBinds(), std::optional(false), 5000);
        QVERIFY(!hotkeys.desktopBinding());
        QCOMPARE(grab.hotKeys(), 1);
        grab.press();
        QCOMPARE(fired, 1);
        // The grab's own refusal is the answer now.
        grab.registerStatus = 3;
        QCOMPARE(hotkeys.registerHotKey(keySpace, control, signature, 2).status, 3);
        QVERIFY(calls(QStringLiteral("GlobalShortcuts")).isEmpty());
    }

    void remoteDesktopCopiesOnceTheUserAllows() {
        InMemoryPasteboard pasteboard;
        FakeKeyboard xtest(pasteboard);
        PortalKeyboard keyboard(xtest, *m_bus, deadlines);
        using Permission = SyntheticKeyboard::Permission;
        using Stroke = SyntheticKeyboard::CopyStroke;
        const QList<Stroke> copy{Stroke::modifierDown, Stroke::keyDown, Stroke::keyUp, Stroke::modifierUp};
        const auto copyOnce = [&keyboard, &copy] {
            QVERIFY(keyboard.beginCopy());
            for (const Stroke stroke : copy)
                QVERIFY(keyboard.post(stroke));
        };

        // Not wanted yet: no session, and copies go to the fallback.
        copyOnce();
        QCOMPARE(xtest.strokes, copy);
        keyboard.setPermissionWanted(true);
        QTRY_COMPARE_WITH_TIMEOUT(keyboard.permission(), Permission::granted, 5000);
        QCOMPARE(calls(QStringLiteral("RemoteDesktop.SelectDevices")).value(0).section(u' ', 2),
                 QStringLiteral("1"));
        QCOMPARE(calls(QStringLiteral("RemoteDesktop.Start")).size(), 1);

        copyOnce();
        QCOMPARE(xtest.strokes.size(), 4);
        QCOMPARE(calls(QStringLiteral("RemoteDesktop.NotifyKeyboardKeycode")),
                 (QStringList{QStringLiteral("RemoteDesktop.NotifyKeyboardKeycode 29 1"),
                              QStringLiteral("RemoteDesktop.NotifyKeyboardKeycode 46 1"),
                              QStringLiteral("RemoteDesktop.NotifyKeyboardKeycode 46 0"),
                              QStringLiteral("RemoteDesktop.NotifyKeyboardKeycode 29 0")}));

        // Turned off: the session is closed and the fallback types again.
        keyboard.setPermissionWanted(false);
        QCOMPARE(keyboard.permission(), Permission::off);
        QTRY_COMPARE_WITH_TIMEOUT(calls(QStringLiteral("Session.Close")).size(), 1, 5000);
        copyOnce();
        QCOMPARE(xtest.strokes.size(), 8);

        // The desktop ends a running session: copies fall back, and the user is told.
        keyboard.setPermissionWanted(true);
        QTRY_COMPARE_WITH_TIMEOUT(keyboard.permission(), Permission::granted, 5000);
        call(QStringLiteral("EndSessions"));
        QTRY_COMPARE_WITH_TIMEOUT(keyboard.permission(), Permission::failed, 5000);
        copyOnce();
        QCOMPARE(xtest.strokes.size(), 12);
    }

    void remoteDesktopRefusedOrMissing_data() {
        QTest::addColumn<QString>("behaviour");
        QTest::addColumn<SyntheticKeyboard::Permission>("expected");
        using Permission = SyntheticKeyboard::Permission;
        QTest::newRow("user refuses") << QStringLiteral("cancel") << Permission::refused;
        QTest::newRow("start fails") << QStringLiteral("fail") << Permission::failed;
        QTest::newRow("never answers") << QStringLiteral("silent") << Permission::failed;
        QTest::newRow("no portal") << QString() << Permission::unavailable;
    }

    void remoteDesktopRefusedOrMissing() {
        QFETCH(QString, behaviour);
        QFETCH(SyntheticKeyboard::Permission, expected);
        if (behaviour.isEmpty())
            call(QStringLiteral("Offer"), {QStringList{}});
        else
            call(QStringLiteral("Script"), {QStringLiteral("Start"), behaviour});
        InMemoryPasteboard pasteboard;
        FakeKeyboard xtest(pasteboard);
        PortalKeyboard keyboard(xtest, *m_bus, deadlines);
        keyboard.setPermissionWanted(true);
        QTRY_COMPARE_WITH_TIMEOUT(keyboard.permission(), expected, 5000);
        QVERIFY(keyboard.beginCopy());
        QVERIFY(keyboard.post(SyntheticKeyboard::CopyStroke::keyDown));
        QCOMPARE(xtest.strokes.size(), 1);
        QVERIFY(calls(QStringLiteral("RemoteDesktop.NotifyKeyboardKeycode")).isEmpty());
        // No second dialog behind the user's back.
        QVERIFY(calls(QStringLiteral("RemoteDesktop.Start")).size() <= 1);
    }
};

QTEST_MAIN(WaylandPortalTest)
#include "tst_waylandportal.moc"
