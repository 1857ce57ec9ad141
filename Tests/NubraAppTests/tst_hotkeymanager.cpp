#include "NubraApp/Capture/HotkeyManager.h"
#include "NubraPlatform/fake/FakeGlobalHotkeys.h"
#include "TestSupport/DebugLogCapture.h"

#include <QTest>

class HotkeyManagerTest : public QObject {
    Q_OBJECT
    DebugLogCapture log;

private slots:
    void registersAndFires() {
        FakeGlobalHotkeys hotkeys;
        HotkeyManager manager(hotkeys);
        int fired = 0;
        manager.onHotkey = [&] { ++fired; };

        manager.registerCombo(HotkeyCombo::defaultCombo());
        QCOMPARE(manager.registeredCombo(), HotkeyCombo::defaultCombo());
        QCOMPARE(hotkeys.handlers(), 1);
        const auto key = hotkeys.onlyHotKey();
        QVERIFY(key);
        QCOMPARE(key->keyCode, 5u);
        QCOMPARE(key->modifiers, 0x800u);
        hotkeys.press();
        QCOMPARE(fired, 1);

        // Command+Shift+Space replaces it: still one key, one handler.
        manager.registerCombo({49, HotkeyCombo::commandFlag | HotkeyCombo::shiftFlag});
        QCOMPARE(hotkeys.handlers(), 1);
        QCOMPARE(hotkeys.onlyHotKey()->keyCode, 49u);
        QCOMPARE(hotkeys.onlyHotKey()->modifiers, 0x300u);
    }

    // The lookup's key and the key for text on the screen share the desktop's handler list.
    void twoManagersAnswerOnlyTheirOwnKey() {
        FakeGlobalHotkeys hotkeys;
        HotkeyManager lookup(hotkeys);
        HotkeyManager screenText(hotkeys, HotkeyManager::screenTextHotKeyId);
        int lookups = 0, screenTexts = 0;
        lookup.onHotkey = [&] { ++lookups; };
        screenText.onHotkey = [&] { ++screenTexts; };
        lookup.registerCombo(HotkeyCombo::defaultCombo());
        screenText.registerCombo({31, HotkeyCombo::controlFlag | HotkeyCombo::optionFlag});
        hotkeys.press(); // the first key registered: the lookup's
        QCOMPARE(lookups, 1);
        QCOMPARE(screenTexts, 0);
        lookup.unregister();
        hotkeys.press();
        QCOMPARE(lookups, 1);
        QCOMPARE(screenTexts, 1);
    }

    void refusesCombinationsThatMeanNothing_data() {
        QTest::addColumn<quint64>("keyCode");
        QTest::addColumn<quint64>("modifiers");
        // Which combinations mean nothing is tst_capture's; here, that the manager asks.
        QTest::newRow("no modifier") << quint64(5) << quint64(0);
        QTest::newRow("key beyond 32 bits") << (quint64(1) << 32) << quint64(HotkeyCombo::optionFlag);
    }
    void refusesCombinationsThatMeanNothing() {
        QFETCH(quint64, keyCode);
        QFETCH(quint64, modifiers);
        FakeGlobalHotkeys hotkeys;
        HotkeyManager manager(hotkeys);
        manager.registerCombo(HotkeyCombo::defaultCombo());
        log.clear();
        manager.registerCombo({keyCode, modifiers});
        QVERIFY(!manager.registeredCombo());
        QCOMPARE(hotkeys.handlers(), 0);
        QCOMPARE(hotkeys.hotKeys(), 0);
        QVERIFY(log.messages().isEmpty());
    }

    void platformFailuresAreLoggedOnly() {
        FakeGlobalHotkeys hotkeys;
        HotkeyManager manager(hotkeys);
        hotkeys.installStatus = -50;
        manager.registerCombo(HotkeyCombo::defaultCombo());
        QVERIFY(!manager.registeredCombo());
        QCOMPARE(hotkeys.handlers(), 0);

        // A refused key leaves the handler installed and nothing registered.
        hotkeys.installStatus = 0;
        hotkeys.registerStatus = -9878;
        manager.registerCombo({40, HotkeyCombo::commandFlag | HotkeyCombo::controlFlag});
        QVERIFY(!manager.registeredCombo());
        QCOMPARE(hotkeys.handlers(), 1);
        QCOMPARE(hotkeys.hotKeys(), 0);
    }

    void unregisterRemovesEverything() {
        FakeGlobalHotkeys hotkeys;
        {
            HotkeyManager manager(hotkeys);
            manager.registerCombo(HotkeyCombo::defaultCombo());
            manager.unregister();
            QVERIFY(!manager.registeredCombo());
            QCOMPARE(hotkeys.handlers(), 0);
            QCOMPARE(hotkeys.hotKeys(), 0);
            manager.registerCombo(HotkeyCombo::defaultCombo());
        }
        // Going away takes the hot key with it.
        QCOMPARE(hotkeys.handlers(), 0);
        QCOMPARE(hotkeys.hotKeys(), 0);
    }
};

QTEST_APPLESS_MAIN(HotkeyManagerTest)
#include "tst_hotkeymanager.moc"
