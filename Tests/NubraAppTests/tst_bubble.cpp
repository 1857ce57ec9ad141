#include "NubraApp/Capture/BubblePlacement.h"
#include "NubraApp/Overlay/BubbleWindow.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QApplication>
#include <QEnterEvent>
#include <QTest>

Q_DECLARE_METATYPE(std::optional<QRectF>)

class BubbleTest : public QObject {
    Q_OBJECT

    static int visibleBubbles() {
        int count = 0;
        for (QWidget* widget : QApplication::topLevelWidgets())
            count += qobject_cast<BubbleButton*>(widget) && widget->isVisible() ? 1 : 0;
        return count;
    }

private slots:
    void cleanup() { L10n::setOverride(std::nullopt); }

    // That it keeps the focus away from the application in front is seen on the desktop (app_desktop).
    void panelIsNamedInTheInterfaceLanguage() {
        L10n::setOverride(QStringLiteral("zh"));
        BubbleWindow bubble;
        bubble.showAt(QPointF(300, 200), [] {});
        QCOMPARE(bubble.panel()->geometry(), QRect(300, 200, 44, 44));
        QCOMPARE(bubble.panel()->accessibleName(), QStringLiteral("解释选中内容"));
        L10n::setOverride(QStringLiteral("en"));
        bubble.showAt(QPointF(300, 200), [] {});
        QCOMPARE(bubble.panel()->accessibleName(), QStringLiteral("Explain selected text"));
    }

    void showingAgainReplacesTheBubble() {
        BubbleWindow bubble;
        QVERIFY(!bubble.isVisible());
        QVERIFY(!bubble.windowId());
        int first = 0, second = 0;
        bubble.showAt(QPointF(10, 20), [&] { ++first; });
        QVERIFY(bubble.isVisible());
        QCOMPARE(*bubble.windowId(), quint64(bubble.panel()->winId()));
        bubble.showAt(QPointF(500.4, 120.6), [&] {
            ++second;
            bubble.hide(); // what the monitor does on a click
        });
        QCOMPARE(visibleBubbles(), 1);
        QCOMPARE(bubble.panel()->pos(), QPoint(500, 121));

        QTest::mouseClick(bubble.panel(), Qt::LeftButton, {}, QPoint(22, 22));
        QCOMPARE(first, 0);
        QCOMPARE(second, 1);
        QCOMPARE(visibleBubbles(), 0);
        QVERIFY(!bubble.windowId());
    }

    void hoverBrightensTheImage() {
        BubbleWindow bubble;
        bubble.showAt(QPointF(10, 10), [] {});
        BubbleButton* panel = bubble.panel();
        QCOMPARE(panel->imageOpacity(), 0.94);
        QEnterEvent enter(QPointF(22, 22), QPointF(32, 32), QPointF(32, 32));
        QApplication::sendEvent(panel, &enter);
        QCOMPARE(panel->imageOpacity(), 1.0);
        QEvent leave(QEvent::Leave);
        QApplication::sendEvent(panel, &leave);
        QCOMPARE(panel->imageOpacity(), 0.94);

        // A pointer still over the bubble when it goes away does not leave it bright for the next one.
        QApplication::sendEvent(panel, &enter);
        bubble.hide();
        bubble.showAt(QPointF(10, 10), [] {});
        QCOMPARE(bubble.panel()->imageOpacity(), 0.94);
    }

    void fadesIn() {
        BubbleWindow bubble;
        bubble.showAt(QPointF(10, 10), [] {});
        QVERIFY(bubble.panel()->windowOpacity() < 1.0);
        QTRY_COMPARE_WITH_TIMEOUT(bubble.panel()->windowOpacity(), 1.0, 2000);
    }

    void placement_data() {
        QTest::addColumn<QRectF>("selection");
        QTest::addColumn<std::optional<QRectF>>("screen");
        QTest::addColumn<QPointF>("expected");

        const std::optional<QRectF> screen = QRectF(0, 0, 1440, 875);
        // Right end at 300, top at 520: left edge 22.4 left of the end, bottom 5 above the top.
        QTest::newRow("above the end") << QRectF(100, 500, 200, 20) << screen << QPointF(277.6, 525);
        // 1440 - 44 - 8 = 1388.
        QTest::newRow("right edge") << QRectF(1300, 300, 140, 20) << screen << QPointF(1388, 325);
        QTest::newRow("left edge") << QRectF(0, 300, 10, 20) << screen << QPointF(8, 325);
        // Top at 860: 865 + 44 reaches past 875 - 4, so it goes 12 + 44 below the bottom edge.
        QTest::newRow("top flips below") << QRectF(100, 840, 200, 20) << screen << QPointF(277.6, 784);
        // Exactly touching the 4-point margin does not flip.
        QTest::newRow("top margin exact") << QRectF(100, 802, 200, 20) << screen << QPointF(277.6, 827);
        QTest::newRow("flip clamped to bottom") << QRectF(100, 10, 200, 860) << screen << QPointF(277.6, 8);
        // Too narrow for both margins: the left one wins.
        QTest::newRow("narrow screen")
            << QRectF(0, 100, 30, 20) << std::optional<QRectF>(QRectF(50, 0, 40, 875)) << QPointF(58, 125);
        QTest::newRow("offset screen")
            << QRectF(2000, 300, 100, 20) << std::optional<QRectF>(QRectF(1440, 0, 1920, 1080))
            << QPointF(2077.6, 325);
        QTest::newRow("no screen uses 1440x900")
            << QRectF(1500, 880, 10, 10) << std::optional<QRectF>() << QPointF(1388, 824);
    }

    void placement() {
        QFETCH(QRectF, selection);
        QFETCH(std::optional<QRectF>, screen);
        QFETCH(QPointF, expected);
        const QPointF origin = BubblePlacement::origin(selection, screen);
        QVERIFY2(qAbs(origin.x() - expected.x()) < 1e-9 && qAbs(origin.y() - expected.y()) < 1e-9,
                 qPrintable(QStringLiteral("got (%1, %2)").arg(origin.x()).arg(origin.y())));
    }
};

QTEST_MAIN(BubbleTest)
#include "tst_bubble.moc"
