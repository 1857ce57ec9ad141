#include "NubraCore/Capture/ClipboardSnapshot.h"
#include "NubraCore/Capture/ContextExtractor.h"
#include "NubraCore/Capture/HotkeyCombo.h"
#include "NubraCore/Capture/SelectionGate.h"
#include "NubraCore/Support/Defaults.h"
#include "NubraCore/Vocabulary/Models.h"

#include <QTest>

using Cut = ContextExtractor::Result;

class ContextExtractorTest : public QObject {
    Q_OBJECT
private slots:
    void cutsByUtf16Units_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("radius");
        QTest::addColumn<qsizetype>("location");
        QTest::addColumn<qsizetype>("length");
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("selected");
        QTest::addColumn<QString>("after");
        const QString ten = u"abcdefghij"_qs;
        QTest::newRow("middle") << ten << 3 << qsizetype(4) << qsizetype(2) << u"bcd"_qs << u"ef"_qs << u"ghi"_qs;
        QTest::newRow("radius 0") << ten << 0 << qsizetype(4) << qsizetype(2) << u""_qs << u"ef"_qs << u""_qs;
        QTest::newRow("negative radius") << ten << -5 << qsizetype(4) << qsizetype(2) << u""_qs << u"ef"_qs << u""_qs;
        QTest::newRow("location past end") << ten << 3 << qsizetype(42) << qsizetype(2) << u"hij"_qs << u""_qs << u""_qs;
        QTest::newRow("negative location") << ten << 3 << qsizetype(-4) << qsizetype(2) << u""_qs << u"ab"_qs << u"cde"_qs;
        QTest::newRow("length past end") << ten << 3 << qsizetype(8) << qsizetype(50) << u"fgh"_qs << u"ij"_qs << u""_qs;
        QTest::newRow("negative length") << ten << 2 << qsizetype(5) << qsizetype(-1) << u"de"_qs << u""_qs << u"fg"_qs;
        QTest::newRow("radius wider than text") << ten << 50 << qsizetype(1) << qsizetype(1) << u"a"_qs << u"b"_qs
                                                << u"cdefghij"_qs;
        QTest::newRow("line breaks and tabs kept") << u"ab\n\tword\r\n!x"_qs << 4 << qsizetype(4) << qsizetype(4) << u"ab\n\t"_qs << u"word"_qs << u"\r\n!x"_qs;
        // "😀" is two UTF-16 units; a radius of 1 falls between them and must not widen the context.
        QTest::newRow("cut inside a character") << u"a😀bc"_qs << 1 << qsizetype(3) << qsizetype(1) << u"a😀bc"_qs.mid(2, 1) << u"b"_qs << u"c"_qs;
    }

    void cutsByUtf16Units() {
        QFETCH(QString, text);
        QFETCH(int, radius);
        QFETCH(qsizetype, location);
        QFETCH(qsizetype, length);
        QFETCH(QString, before);
        QFETCH(QString, selected);
        QFETCH(QString, after);
        const Cut cut = ContextExtractor(radius).extract(text, location, length);
        QCOMPARE(cut.before, before);
        QCOMPARE(cut.selected, selected);
        QCOMPARE(cut.after, after);
    }

    void longSelectionKeepsTwoThousandUnitsAndAfterStartsAtItsEnd() {
        const QString selection = QString(2000, u'x') + QString(500, u'y');
        const QString text = u"0123456789"_qs + selection + u"tail-of-text"_qs;
        const Cut cut = ContextExtractor(4).extract(text, 10, selection.size());
        QCOMPARE(cut.selected, QString(2000, u'x'));
        QCOMPARE(cut.before, u"6789"_qs);
        QCOMPARE(cut.after, u"tail"_qs);
    }

    // The cut at 2000 graphemes is tst_selectionservice's, through the copy that needs it.
    void fallbackKeepsGraphemesWhole() {
        const QString shortText = u"e\u0301tude"_qs; // a combining accent stays with its letter
        QCOMPARE(ContextExtractor::fallback(shortText).selected, shortText);
        QCOMPARE(ContextExtractor::fallback(QString()).selected, QString());
    }
};

class SelectionGateTest : public QObject {
    Q_OBJECT
private slots:
    void gateRules() {
        const QSet<QString> defaults = SelectionGate::defaultExcludedApps();
        QVERIFY(defaults.contains(u"com.agilebits.onepassword"_qs) && defaults.contains(u"KeePassXC"_qs));
        const QSet<QString> everything{u"com.agilebits.onepassword"_qs, u"Notes"_qs};

        QVERIFY(SelectionGate::shouldCapture(false, std::nullopt, everything, false));
        QVERIFY(!SelectionGate::shouldCapture(false, std::nullopt, {}, true));
        QVERIFY(!SelectionGate::shouldCapture(true, u"Notes"_qs, {}, false));
        QVERIFY(!SelectionGate::shouldCapture(false, u"com.agilebits.onepassword"_qs, defaults, false));
        QVERIFY(SelectionGate::shouldCapture(false, u"COM.AGILEBITS.ONEPASSWORD"_qs, defaults, false));
        QVERIFY(SelectionGate::shouldCapture(false, u"Notes"_qs, defaults, false));
        QVERIFY(!SelectionGate::shouldCapture(false, u"Notes"_qs, everything, false));
    }
};

class ClipboardSnapshotTest : public QObject {
    Q_OBJECT
private slots:
    void capturesReadableTypesInOrderAndRestoresThem() {
        InMemoryPasteboard pasteboard;
        pasteboard.setData("<b>hi</b>", u"text/html"_qs);
        pasteboard.setData("hi", Pasteboard::plainTextType());
        pasteboard.addUnreadableType(u"application/x-promise"_qs);
        QCOMPARE(pasteboard.types().size(), 3);

        const ClipboardSnapshot snapshot = ClipboardSnapshot::capture(pasteboard);
        QCOMPARE(snapshot.typeCount(), 2);
        QCOMPARE(snapshot.items.at(0), (ClipboardSnapshot::Item{u"text/html"_qs, "<b>hi</b>"}));
        QCOMPARE(snapshot.items.at(1), (ClipboardSnapshot::Item{Pasteboard::plainTextType(), "hi"}));

        pasteboard.clearContents();
        pasteboard.setData("copied selection", Pasteboard::plainTextType());
        snapshot.restore(pasteboard);
        QCOMPARE(pasteboard.types(), (QStringList{u"text/html"_qs, Pasteboard::plainTextType()}));
        QCOMPARE(pasteboard.string(), u"hi"_qs);
    }

    void restoringAnEmptySnapshotEmptiesThePasteboard() {
        InMemoryPasteboard pasteboard;
        const ClipboardSnapshot empty = ClipboardSnapshot::capture(pasteboard);
        QCOMPARE(empty.typeCount(), 0);
        pasteboard.setData("left over by the copy", Pasteboard::plainTextType());
        const qint64 before = pasteboard.changeCount();
        empty.restore(pasteboard);
        QVERIFY(pasteboard.types().isEmpty());
        QVERIFY(pasteboard.changeCount() > before);
    }

    void refusedWritesAreIgnored() {
        InMemoryPasteboard pasteboard;
        pasteboard.setData("keep", Pasteboard::plainTextType());
        const ClipboardSnapshot snapshot = ClipboardSnapshot::capture(pasteboard);
        pasteboard.setRefusesWrites(true);
        snapshot.restore(pasteboard); // must not throw or loop
        QVERIFY(pasteboard.types().isEmpty());
    }
};

class HotkeyComboTest : public QObject {
    Q_OBJECT
private slots:
    void meaningfulNeedsKeyAndKnownModifiers_data() {
        QTest::addColumn<quint64>("keyCode");
        QTest::addColumn<quint64>("modifiers");
        QTest::addColumn<bool>("meaningful");
        QTest::newRow("option+g") << quint64(5) << quint64(0x80000) << true;
        QTest::newRow("no modifier") << quint64(5) << quint64(0) << false;
        QTest::newRow("key code 0 is no key") << quint64(0) << quint64(0x100000) << false;
        QTest::newRow("caps lock bit") << quint64(5) << quint64(0x80000 | 0x10000) << false;
        QTest::newRow("only an unknown bit") << quint64(5) << quint64(0x800000) << false;
    }

    void meaningfulNeedsKeyAndKnownModifiers() {
        QFETCH(quint64, keyCode);
        QFETCH(quint64, modifiers);
        QFETCH(bool, meaningful);
        QCOMPARE((HotkeyCombo{keyCode, modifiers}.isMeaningful()), meaningful);
    }

    // Written as Linux desktops write shortcuts: Ctrl, Alt, Shift, Super (the Command flag), then the key.
    void displayWritesLinuxNames_data() {
        QTest::addColumn<quint64>("keyCode");
        QTest::addColumn<quint64>("modifiers");
        QTest::addColumn<QString>("display");
        QTest::newRow("option g") << quint64(5) << quint64(0x80000) << u"Alt+G"_qs;
        QTest::newRow("command shift space") << quint64(49) << quint64(0x120000) << u"Shift+Super+Space"_qs;
        QTest::newRow("all four") << quint64(36) << quint64(0x1E0000) << u"Ctrl+Alt+Shift+Super+Return"_qs;
        QTest::newRow("unnamed key") << quint64(50) << quint64(0x40000) << u"Ctrl+Key50"_qs;
        QTest::newRow("no modifier") << quint64(27) << quint64(0) << u"Key27"_qs;
        QTest::newRow("arrow") << quint64(126) << quint64(0x20000) << u"Shift+Up"_qs;
    }

    void displayWritesLinuxNames() {
        QFETCH(quint64, keyCode);
        QFETCH(quint64, modifiers);
        QFETCH(QString, display);
        QCOMPARE((HotkeyCombo{keyCode, modifiers}.display()), display);
    }

    void keyNameTable() {
        // The ANSI layout: letters and digits are not in alphabetical order of their codes.
        const QString expected = u"ASDFHGZXCV?BQWERYT123465?97?80?OU?IP?LJ?K????NM"_qs;
        QString actual;
        for (int code = 0; code < expected.size(); ++code) {
            const QString name = HotkeyCombo::keyName(quint64(code));
            actual += name.startsWith(u"Key") ? u"?"_qs : name;
        }
        QCOMPARE(actual.replace(u"Return"_qs, u"?"_qs), expected);

        const QList<QPair<int, QString>> special{
            {36, u"Return"_qs}, {48, u"Tab"_qs},   {49, u"Space"_qs}, {51, u"Backspace"_qs}, {53, u"Esc"_qs},
            {123, u"Left"_qs},  {124, u"Right"_qs}, {125, u"Down"_qs}, {126, u"Up"_qs}};
        for (const auto& [code, name] : special)
            QCOMPARE(HotkeyCombo::keyName(quint64(code)), name);
    }

    void carbonModifiers() {
        QCOMPARE((HotkeyCombo{5, 0x100000}.carbonModifiers()), 0x100u);
        QCOMPARE((HotkeyCombo{5, 0x20000}.carbonModifiers()), 0x200u);
        QCOMPARE((HotkeyCombo{5, 0x80000}.carbonModifiers()), 0x800u);
        QCOMPARE((HotkeyCombo{5, 0x40000}.carbonModifiers()), 0x1000u);
        QCOMPARE((HotkeyCombo{5, 0x1E0000 | 0x10000 | 0x1}.carbonModifiers()), 0x1B00u);
    }

    void loadAndSave() {
        InMemoryDefaults defaults;
        QCOMPARE(HotkeyCombo::load(defaults), HotkeyCombo::defaultCombo());
        QCOMPARE(HotkeyCombo::load(defaults).display(), u"Alt+G"_qs);

        HotkeyCombo{40, 0x100000}.save(defaults);
        QCOMPARE(defaults.integer(u"hotkey.keyCode"_qs), 40);
        QCOMPARE(defaults.integer(u"hotkey.modifiers"_qs), 0x100000);
        QCOMPARE(HotkeyCombo::load(defaults).display(), u"Super+K"_qs);

        defaults.setValue(u"hotkey.keyCode"_qs, 0);
        QCOMPARE(HotkeyCombo::load(defaults), HotkeyCombo::defaultCombo());

        // A stored combination is returned as stored, even one that is not meaningful.
        defaults.setValue(u"hotkey.keyCode"_qs, 7);
        defaults.setValue(u"hotkey.modifiers"_qs, 0);
        QCOMPARE(HotkeyCombo::load(defaults), (HotkeyCombo{7, 0}));
        defaults.remove(u"hotkey.modifiers"_qs);
        QCOMPARE(HotkeyCombo::load(defaults), (HotkeyCombo{7, 0}));
    }
};

int main(int argc, char** argv) {
    int status = 0;
    ContextExtractorTest extractor;
    status |= QTest::qExec(&extractor, argc, argv);
    SelectionGateTest gate;
    status |= QTest::qExec(&gate, argc, argv);
    ClipboardSnapshotTest clipboard;
    status |= QTest::qExec(&clipboard, argc, argv);
    HotkeyComboTest hotkey;
    status |= QTest::qExec(&hotkey, argc, argv);
    return status;
}

#include "tst_capture.moc"
