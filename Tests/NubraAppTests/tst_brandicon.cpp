#include "NubraApp/Shell/BrandIcon.h"

#include <QImage>
#include <QTest>

class BrandIconTest : public QObject {
    Q_OBJECT
private slots:
    void superellipseFillsItsSquare() {
        const QRectF square(10, 20, 64, 64);
        const QPainterPath path = BrandIcon::squirclePath(square);
        // Starts at the right-hand midpoint; 160 segments come back to it.
        QCOMPARE(path.elementAt(0).x, 74.0);
        QCOMPARE(path.elementAt(0).y, 52.0);
        QVERIFY(path.elementCount() >= BrandIcon::superellipseSegments + 1);
        QVERIFY(square.adjusted(-1e-9, -1e-9, 1e-9, 1e-9).contains(path.boundingRect()));
        QVERIFY(qAbs(path.boundingRect().width() - 64) < 1e-9);
        // Fuller than a circle: the diagonal point of |x|^3.6 + |y|^3.6 = 1 lies at 2^(-1/3.6) of the radius.
        const double corner = 32 * std::pow(2.0, -1 / BrandIcon::superellipseExponent);
        QVERIFY(path.contains(QPointF(42 + corner - 0.5, 52 + corner - 0.5)));
        QVERIFY(!path.contains(QPointF(42 + corner + 0.5, 52 + corner + 0.5)));
    }

    void theMarkIsWhiteWithTheLetterCutOut() {
        const QImage mark = BrandIcon::markImage(64);
        QCOMPARE(mark.size(), QSize(64, 64));
        QCOMPARE(qAlpha(mark.pixel(0, 0)), 0);    // outside the rounded corner
        QVERIFY(qAlpha(mark.pixel(6, 32)) > 200); // the white shape, left of the letter
        int cutOut = 0;                           // transparent pixels inside the shape: the letter
        for (int x = 16; x < 48; ++x)
            cutOut += qAlpha(mark.pixel(x, 32)) < 40;
        QVERIFY2(cutOut >= 4, qPrintable(QString::number(cutOut)));
    }

    void trayIconIsDrawnAtTheSizeAsked() {
        const QIcon icon = BrandIcon::menuBarIcon(false);
        QVERIFY(icon.availableSizes().contains(QSize(22, 22)));
        // A size no list holds, at a fractional ratio: drawn at exactly its device pixels, not scaled.
        const QPixmap odd = icon.pixmap(QSize(22, 22), 1.5);
        QCOMPARE(odd.size(), QSize(33, 33));
        QCOMPARE(odd.devicePixelRatio(), 1.5);
        QImage drawn = odd.toImage();
        drawn.setDevicePixelRatio(1);
        QCOMPARE(drawn, BrandIcon::markImage(33).convertToFormat(drawn.format()));
    }

    void bubbleImageIsDrawnAtFourTimesItsSize() {
        const QPixmap image = BrandIcon::bubbleImage(30);
        QCOMPARE(image.size(), QSize(120, 120));
        QCOMPARE(image.devicePixelRatio(), 4.0);
        QCOMPARE(image.deviceIndependentSize(), QSizeF(30, 30));
    }
};

QTEST_MAIN(BrandIconTest)
#include "tst_brandicon.moc"
