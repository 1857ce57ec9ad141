#include "NubraPlatform/TextPlacement.h"

#include <QtTest>

using TextPlacement::Measured;
using TextPlacement::onScreen;
using TextPlacement::Window;

namespace {

// A word of two characters as a toolkit measures it, 30,40 onwards in whatever space it counts in.
Measured word() {
    Measured m;
    m.range = QRectF(30, 40, 20, 18);
    m.first = QRectF(30, 40, 10, 18);
    m.last = QRectF(40, 40, 10, 18);
    return m;
}

// The same word from GTK 4, which measures characters in window coordinates only.
Measured gtk4Word() {
    Measured m;
    m.firstInWindow = QRectF(30, 40, 10, 18);
    m.lastInWindow = QRectF(40, 40, 10, 18);
    return m;
}

} // namespace

class TextPlacementTest : public QObject {
    Q_OBJECT

private slots:
    void x11ScreenAnswersStandAsTheyAre() {
        // The window is not asked for: its place must not move a rectangle already on the screen.
        QCOMPARE(onScreen(word(), {false, QRect(500, 300, 400, 300), {}}), QRectF(30, 40, 20, 18));
        // A range wider than its ends (a browser's line box) keeps its width.
        Measured wide = word();
        wide.range = QRectF(28, 38, 30, 22);
        QCOMPARE(onScreen(wide, {}), QRectF(28, 38, 30, 22));
    }

    void partlyLaidOutRangeIsUnknown() {
        for (const bool wayland : {false, true}) {
            Measured m = word();
            m.last.reset();
            m.firstInWindow = QRectF(30, 40, 10, 18); // never mixed in with screen answers
            m.lastInWindow = QRectF(40, 40, 10, 18);
            QCOMPARE(onScreen(m, {wayland, QRect(0, 0, 800, 600), {}}), std::nullopt);
        }
    }

    void gtk4OnX11CountsFromTheActiveWindowInsideItsShadow() {
        // The X window is 40 wider and 30 taller than the frame GTK draws inside its shadow.
        const Window window{false, QRect(200, 100, 440, 330), QSizeF(400, 300)};
        QCOMPARE(onScreen(gtk4Word(), window), QRectF(250, 155, 20, 18));
        QCOMPARE(onScreen(gtk4Word(), {false, std::nullopt, QSizeF(400, 300)}), std::nullopt);
        QCOMPARE(onScreen(Measured{}, window), std::nullopt);
    }

    void waylandRectanglesNeedTheCompositorsOrigin() {
        // Wayland toolkits answer "screen" questions relative to the window too.
        QCOMPARE(onScreen(word(), {true, QRect(600, 25, 400, 300), QSizeF(400, 300)}),
                 QRectF(630, 65, 20, 18));
        QCOMPARE(onScreen(gtk4Word(), {true, QRect(600, 25, 400, 300), {}}), QRectF(630, 65, 20, 18));
        // GNOME does not tell where a window is: nothing, rather than window numbers taken for the screen.
        QCOMPARE(onScreen(word(), {true, std::nullopt, QSizeF(400, 300)}), std::nullopt);
        QVERIFY(TextPlacement::needsWindow(word(), true));
        QVERIFY(!TextPlacement::needsWindow(word(), false));
    }
};

QTEST_APPLESS_MAIN(TextPlacementTest)
#include "tst_textplacement.moc"
