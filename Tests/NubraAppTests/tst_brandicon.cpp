#include "NubraApp/Foundation/BrandIcon.h"

#include <QImage>
#include <QPainter>
#include <QRegularExpression>
#include <QTest>
#include <QXmlStreamReader>

namespace {

struct SvgPath {
    QPainterPath path;
    double strokeWidth = 0;
};

// The outline and the letter of the installed SVG icon, read back from their path data.
QList<SvgPath> svgPaths(const QByteArray& svg) {
    QList<SvgPath> paths;
    QXmlStreamReader xml(svg);
    while (xml.readNext() != QXmlStreamReader::Invalid && !xml.atEnd()) {
        if (!xml.isStartElement() || xml.name() != u"path")
            continue;
        QPainterPath path;
        static const QRegularExpression command(QStringLiteral(R"(([MLCZ ])(?:(-?[\d.]+),(-?[\d.]+))?)"));
        QList<QPointF> curve;
        for (const QRegularExpressionMatch& m :
             command.globalMatch(xml.attributes().value(QStringLiteral("d")).toString())) {
            const QPointF point(m.captured(2).toDouble(), m.captured(3).toDouble());
            const QChar op = m.captured(1).at(0);
            if (op == u'M')
                path.moveTo(point);
            else if (op == u'L')
                path.lineTo(point);
            else if (op == u'Z')
                path.closeSubpath();
            else
                curve << point;
            if (curve.size() == 3) {
                path.cubicTo(curve[0], curve[1], curve[2]);
                curve.clear();
            }
        }
        paths << SvgPath{path, xml.attributes().value(QStringLiteral("stroke-width")).toDouble()};
    }
    // A document that is not well-formed yields nothing.
    return xml.hasError() ? QList<SvgPath>() : paths;
}

} // namespace

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

    // The installed scalable icon covers the same pixels as the drawn one: outline and letter.
    void scalableIconMatchesTheDrawnIcon() {
        const QList<SvgPath> paths = svgPaths(BrandIcon::appIconSvg());
        QCOMPARE(paths.size(), 2);
        QVERIFY(paths[0].strokeWidth > 0);
        QImage fromSvg(256, 256, QImage::Format_ARGB32_Premultiplied);
        fromSvg.fill(Qt::transparent);
        QPainter painter(&fromSvg);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(Qt::blue, paths[0].strokeWidth));
        painter.setBrush(Qt::blue);
        painter.drawPath(paths[0].path);
        painter.fillPath(paths[1].path, Qt::white);
        painter.end();
        const QImage drawn = BrandIcon::appIconImage(256);
        int differing = 0;
        for (int y = 0; y < 256; y += 2) {
            for (int x = 0; x < 256; x += 2) {
                const bool letterInSvg = qRed(fromSvg.pixel(x, y)) > 128;
                const bool letterDrawn = qRed(drawn.pixel(x, y)) > 200 && qBlue(drawn.pixel(x, y)) > 200;
                const bool insideSvg = qAlpha(fromSvg.pixel(x, y)) > 128;
                const bool insideDrawn = qAlpha(drawn.pixel(x, y)) > 128;
                differing += letterInSvg != letterDrawn || insideSvg != insideDrawn;
            }
        }
        // Only antialiased edge pixels may disagree.
        QVERIFY2(differing < 200, qPrintable(QString::number(differing)));
    }
};

QTEST_MAIN(BrandIconTest)
#include "tst_brandicon.moc"
