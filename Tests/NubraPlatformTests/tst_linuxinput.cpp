#include "NubraCore/Capture/HotkeyCombo.h"
#include "NubraCore/Capture/QtKeyMap.h"
#include "NubraPlatform/linux/ClickCounter.h"
#include "NubraPlatform/linux/X11KeyMap.h"

#include <QSet>
#include <QTest>

#include <X11/X.h>
#include <X11/keysym.h>

class LinuxInputTest : public QObject {
    Q_OBJECT

private slots:
    void clickRuns() {
        ClickCounter clicks(400, 10);
        QCOMPARE(clicks.press(1, 1000, {100, 100}), 1);
        QCOMPARE(clicks.press(1, 1300, {104, 103}), 2);
        QCOMPARE(clicks.press(1, 1700, {104, 103}), 3); // 400 ms after the previous press still counts
        QCOMPARE(clicks.press(1, 2101, {104, 103}), 1); // too late
        QCOMPARE(clicks.press(1, 2200, {115, 103}), 1); // too far
        QCOMPARE(clicks.press(2, 2300, {115, 103}), 1); // another button
        QCOMPARE(clicks.press(2, 2400, {115, 103}), 2);
    }

    void ansiKeyCodesBecomeKeysyms() {
        QCOMPARE(X11KeyMap::keysymFor(5), std::optional<quint32>(XK_g));
        QCOMPARE(X11KeyMap::keysymFor(0), std::optional<quint32>(XK_a));
        QCOMPARE(X11KeyMap::keysymFor(22), std::optional<quint32>(XK_6));
        QCOMPARE(X11KeyMap::keysymFor(23), std::optional<quint32>(XK_5));
        QCOMPARE(X11KeyMap::keysymFor(49), std::optional<quint32>(XK_space));
        QCOMPARE(X11KeyMap::keysymFor(53), std::optional<quint32>(XK_Escape));
        QCOMPARE(X11KeyMap::keysymFor(126), std::optional<quint32>(XK_Up));
        QCOMPARE(X11KeyMap::keysymFor(50), std::nullopt);
        // Every name the hot-key display knows has a key to grab.
        for (quint32 code = 0; code < 127; ++code) {
            if (!HotkeyCombo::keyName(code).startsWith(QStringLiteral("Key")))
                QVERIFY2(X11KeyMap::keysymFor(code), qPrintable(HotkeyCombo::keyName(code)));
        }
    }

    // A key recorded in the settings window is grabbed as that same key, and every key the grab knows
    // can be recorded.
    void recordedKeysAreGrabbedKeys() {
        QList<std::pair<int, quint32>> keys{
            {Qt::Key_Return, XK_Return},       {Qt::Key_Tab, XK_Tab},       {Qt::Key_Space, XK_space},
            {Qt::Key_Backspace, XK_BackSpace}, {Qt::Key_Escape, XK_Escape}, {Qt::Key_Left, XK_Left},
            {Qt::Key_Right, XK_Right},         {Qt::Key_Down, XK_Down},     {Qt::Key_Up, XK_Up}};
        for (int i = 0; i < 26; ++i)
            keys.append({Qt::Key_A + i, XK_a + i});
        for (int i = 0; i < 10; ++i)
            keys.append({Qt::Key_0 + i, XK_0 + i});
        QSet<quint32> recordable;
        for (const auto& [key, keysym] : keys) {
            const std::optional<std::uint64_t> code = QtKeyMap::ansiKeyCode(key, Qt::NoModifier);
            QVERIFY2(code, qPrintable(QString::number(key, 16)));
            QCOMPARE(X11KeyMap::keysymFor(quint32(*code)), std::optional<quint32>(keysym));
            recordable.insert(quint32(*code));
        }
        for (quint32 code = 0; code < 256; ++code)
            QCOMPARE(X11KeyMap::keysymFor(code).has_value(), recordable.contains(code));
    }

    void modifiersBothWays() {
        QCOMPARE(X11KeyMap::x11Modifiers(0x800), unsigned(Mod1Mask));
        QCOMPARE(X11KeyMap::x11Modifiers(0x100 | 0x200 | 0x1000),
                 unsigned(Mod4Mask | ShiftMask | ControlMask));
        QCOMPARE(X11KeyMap::x11Modifiers(0x400), 0u);
        QCOMPARE(X11KeyMap::modifierFlags(Mod1Mask | LockMask | Mod2Mask | Button1Mask),
                 HotkeyCombo::optionFlag);
        QCOMPARE(X11KeyMap::modifierFlags(ShiftMask | ControlMask | Mod4Mask),
                 HotkeyCombo::shiftFlag | HotkeyCombo::controlFlag | HotkeyCombo::commandFlag);
    }
};

QTEST_APPLESS_MAIN(LinuxInputTest)
#include "tst_linuxinput.moc"
