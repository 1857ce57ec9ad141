#include "NubraApp/Overlay/BubbleWindow.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QApplication>
#include <QEnterEvent>
#include <QTest>

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
};

QTEST_MAIN(BubbleTest)
#include "tst_bubble.moc"
