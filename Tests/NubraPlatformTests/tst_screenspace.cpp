#include "NubraPlatform/ScreenSpace.h"

#include <QtTest>

namespace {

// Xvfb with two RandR monitors: LEFT 1280x800 (primary) and RIGHT 1024x768 beside it.
ScreenSpace sideBySide(qreal rightRatio = 1) {
    const QRect left(0, 0, 1280, 800);
    const QRect right(QPoint(1280, 0), QSize(1024, 768) / rightRatio);
    return ScreenSpace({{left, left, 1}, {right, right, rightRatio}});
}

// A selection given as X11 reports it (device pixels, top-left origin), in global coordinates.
QRectF selection(const ScreenSpace& space, double x, double y, double width, double height) {
    return {x, space.deviceHeight() - y - height, width, height};
}

// The logical top-left corner of a window that covers `placement` exactly.
QPointF windowOver(const ScreenSpace& space, const QRectF& placement) {
    return space.windowTopLeft(placement.topLeft(), placement.height());
}

} // namespace

class ScreenSpaceTest : public QObject {
    Q_OBJECT

private slots:
    void oneScreenAtRatioOneIsTheIdentity() {
        // A panel's strut at the top leaves 0,24 1280x776 available.
        const ScreenSpace space({{QRect(0, 0, 1280, 800), QRect(0, 24, 1280, 776), 1}});
        QCOMPARE(space.deviceHeight(), 800.0);

        const QRectF global = selection(space, 400, 200, 80, 20);
        QCOMPARE(global, QRectF(400, 580, 80, 20));
        QCOMPARE(space.toPlacement(global), global);
        QCOMPARE(space.deviceToLogical(QPointF(400, 200)), QPointF(400, 200));
        // In bottom-left coordinates the strut takes the frame's top.
        QCOMPARE(space.visibleFrameFor(global), QRectF(0, 0, 1280, 776));
        // A 150 tall card whose top is 10 below the selection.
        QCOMPARE(space.windowTopLeft(QPointF(400, 580 - 160), 150), QPointF(400, 230));
        QCOMPARE(windowOver(space, space.toPlacement(global)), QPointF(400, 200));
    }

    void twoScreensSideBySide() {
        const ScreenSpace space = sideBySide();
        QCOMPARE(space.deviceHeight(), 800.0);

        const QRectF onRight = selection(space, 1400, 100, 60, 20);
        QCOMPARE(space.toPlacement(onRight), onRight);
        // RIGHT is 32 shorter than the desktop, so its frame starts 32 up from the desktop's bottom.
        QCOMPARE(space.visibleFrameFor(onRight), QRectF(1280, 32, 1024, 768));
        QCOMPARE(windowOver(space, onRight), QPointF(1400, 100));

        const QRectF onLeft = selection(space, 1200, 700, 60, 20);
        QCOMPARE(space.visibleFrameFor(onLeft), QRectF(0, 0, 1280, 800));
        // The column where the screens meet is RIGHT's first, not LEFT's last.
        QCOMPARE(space.visibleFrameFor(selection(space, 1280, 100, 0, 0)), QRectF(1280, 32, 1024, 768));
    }

    void uniformRatioTwo() {
        // QT_SCALE_FACTOR=2 on a 1280x800 display: Qt reports 640x400 logical pixels.
        const QRect logical(0, 0, 640, 400);
        const ScreenSpace space({{logical, logical, 2}});
        QCOMPARE(space.deviceHeight(), 800.0);
        QCOMPARE(space.deviceToLogical(QPointF(400, 200)), QPointF(200, 100));

        const QRectF global = selection(space, 400, 200, 40, 20);
        const QRectF placement = space.toPlacement(global);
        QCOMPARE(placement, QRectF(200, 690, 20, 10));
        const std::optional<QRectF> frame = space.visibleFrameFor(global);
        QCOMPARE(frame, QRectF(0, 400, 640, 400));
        QVERIFY(frame->contains(placement));
        QCOMPARE(windowOver(space, placement), QPointF(200, 100));
    }

    void straddlingSelectionGoesByTheScreenOfItsCentre() {
        // RIGHT at ratio 2 this time; the selection starts 10 device pixels into LEFT.
        const ScreenSpace space = sideBySide(2);
        const QRectF global = selection(space, 1270, 100, 100, 20);
        const QRectF placement = space.toPlacement(global);
        QCOMPARE(placement, QRectF(1275, 740, 50, 10));
        QCOMPARE(space.visibleFrameFor(global), QRectF(1280, 416, 512, 384));
        QCOMPARE(windowOver(space, placement), QPointF(1275, 50));
    }

    void pointsOutsideEveryScreenUseTheNearest() {
        const ScreenSpace space = sideBySide();
        const QRectF right(1280, 32, 1024, 768);
        // Below RIGHT, in the strip only LEFT is tall enough for.
        QCOMPARE(space.visibleFrameFor(selection(space, 1500, 790, 0, 0)), right);
        QCOMPARE(space.visibleFrameFor(selection(space, 3000, 100, 0, 0)), right);
        QCOMPARE(space.visibleFrameFor(selection(space, -50, 400, 0, 0)), QRectF(0, 0, 1280, 800));

        const ScreenSpace none;
        QVERIFY(none.isEmpty());
        QVERIFY(!none.visibleFrameFor(QRectF(10, 10, 5, 5)));
        QCOMPARE(none.toPlacement(QRectF(10, 10, 5, 5)), QRectF(10, 10, 5, 5));
    }
};

QTEST_APPLESS_MAIN(ScreenSpaceTest)
#include "tst_screenspace.moc"
