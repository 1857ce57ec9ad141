#include "NubraApp/Foundation/BrandIcon.h"

#include "NubraCore/Vocabulary/L10n.h"

#include <QFont>
#include <QFontMetricsF>
#include <QIconEngine>
#include <QPainter>

#include <cmath>
#include <numbers>

namespace BrandIcon {

namespace {

constexpr int iconPixelSizes[] = {16, 22, 24, 32, 48, 64, 128};
const QColor markWhite = QColor::fromRgbF(1, 1, 1, 0.92f);

QFont letterFont(double pixelSize) {
    QFont font(QStringLiteral("Nunito"));
    font.setStyleHint(QFont::SansSerif);
    font.setWeight(QFont::DemiBold);
    font.setPixelSize(std::max(1, int(std::lround(pixelSize))));
    return font;
}

// The letter N, 0.7 of `rect`'s height, centred in it and nudged right by 1.6 % of the width and up by
// 3.1 % of the height.
QPainterPath letterPath(const QRectF& rect) {
    const QFont font = letterFont(rect.height() * 0.7);
    const QString letter = QStringLiteral("N");
    const QRectF ink = QFontMetricsF(font).tightBoundingRect(letter);
    const QPointF centre = rect.center() + QPointF(rect.width() * 0.016, -rect.height() * 0.031);
    QPainterPath path;
    path.addText(centre - ink.center(), font, letter);
    return path;
}

// A transparent square of `pixels`, painted with antialiasing by `draw`.
template <typename Draw> QImage drawn(int pixels, Draw&& draw) {
    QImage image(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    draw(painter, QRectF(image.rect()));
    return image;
}

QImage moonImage(int pixels) {
    return drawn(pixels, [](QPainter& painter, const QRectF& rect) {
        const double inset = rect.width() * 0.1;
        const QRectF disc = rect.adjusted(inset, inset, -inset, -inset);
        QPainterPath moon;
        moon.addEllipse(disc);
        QPainterPath bite;
        bite.addEllipse(disc.translated(disc.width() * 0.38, -disc.height() * 0.22));
        painter.fillPath(moon.subtracted(bite), markWhite);
    });
}

} // namespace

QPainterPath squirclePath(const QRectF& rect, double n) {
    const QPointF mid = rect.center();
    const double a = rect.width() / 2;
    const double b = rect.height() / 2;
    const double exponent = 2 / n;
    QPainterPath path(QPointF(mid.x() + a, mid.y()));
    for (int k = 1; k <= superellipseSegments; ++k) {
        const double t = 2 * std::numbers::pi * k / superellipseSegments;
        const double c = std::cos(t);
        const double s = std::sin(t);
        path.lineTo(mid.x() + std::copysign(a * std::pow(std::abs(c), exponent), c),
                    mid.y() + std::copysign(b * std::pow(std::abs(s), exponent), s));
    }
    path.closeSubpath();
    return path;
}

QImage markImage(int pixels) {
    return drawn(pixels, [](QPainter& painter, const QRectF& rect) {
        painter.setClipPath(squirclePath(rect));
        painter.fillRect(rect, markWhite);
        // The letter is cut out of the white shape, so the panel shows through it.
        painter.setCompositionMode(QPainter::CompositionMode_Clear);
        painter.fillPath(letterPath(rect), Qt::black);
    });
}

namespace {

// Draws the tray image afresh at whatever size Qt asks for, device pixel ratio included, so that no
// screen shows a scaled copy. The usual tray sizes are offered to hosts that pick from a list.
class DrawnIconEngine final : public QIconEngine {
public:
    explicit DrawnIconEngine(bool paused) : m_paused(paused) {}

    QPixmap pixmap(const QSize& size, QIcon::Mode, QIcon::State) override {
        const int pixels = std::max(1, std::min(size.width(), size.height()));
        return QPixmap::fromImage(m_paused ? moonImage(pixels) : markImage(pixels));
    }
    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State state) override {
        const qreal scale = painter->device() ? painter->device()->devicePixelRatioF() : 1;
        QPixmap image = pixmap(rect.size() * scale, mode, state);
        image.setDevicePixelRatio(scale);
        painter->drawPixmap(rect, image);
    }
    QList<QSize> availableSizes(QIcon::Mode, QIcon::State) override {
        QList<QSize> sizes;
        for (const int pixels : iconPixelSizes)
            sizes << QSize(pixels, pixels);
        return sizes;
    }
    QIconEngine* clone() const override { return new DrawnIconEngine(m_paused); }

private:
    bool m_paused;
};

} // namespace

QIcon menuBarIcon(bool paused) {
    if (paused) {
        const QIcon themed = QIcon::fromTheme(QStringLiteral("weather-clear-night-symbolic"));
        if (!themed.isNull())
            return themed;
    }
    return QIcon(new DrawnIconEngine(paused));
}

QString menuBarIconDescription(bool paused) {
    return paused ? L10n::t(QStringLiteral("Nubra paused"), QStringLiteral("Nubra 已暂停"))
                  : QStringLiteral("Nubra");
}

namespace {

// The application icon's shapes within a square of `side`: a margin keeps the rim inside it.
struct AppIconShapes {
    explicit AppIconShapes(double side)
        : AppIconShapes(inset(QRectF(0, 0, side, side), side / 60), side / 40) {}

    QPainterPath outline;
    QPainterPath letter;
    double rimWidth;

private:
    AppIconShapes(const QRectF& shape, double rim)
        : outline(squirclePath(shape)), letter(letterPath(inset(shape, shape.width() * 0.12))),
          rimWidth(rim) {}

    static QRectF inset(const QRectF& rect, double by) { return rect.adjusted(by, by, -by, -by); }
};

const QColor fillTop(0x3d, 0x7b, 0xf5);
const QColor fillBottom(0x23, 0x55, 0xd6);
// A light rim keeps the mark apart from dark windows beneath it.
const QColor rim(255, 255, 255, 150);

QByteArray number(double value) {
    return QByteArray::number(value, 'f', 2);
}

// SVG path data for `path`: Qt's elements are moves, lines and cubic curves, as in SVG; every
// subpath is closed.
QByteArray svgPathData(const QPainterPath& path) {
    QByteArray data;
    for (int i = 0; i < path.elementCount(); ++i) {
        const QPainterPath::Element element = path.elementAt(i);
        if (element.isMoveTo()) {
            data += i > 0 ? "ZM" : "M";
        } else if (element.isLineTo()) {
            data += 'L';
        } else if (element.isCurveTo()) {
            data += 'C';
        } else {
            data += ' ';
        }
        data += number(element.x) + ',' + number(element.y);
    }
    return data + 'Z';
}

} // namespace

QImage appIconImage(int pixels) {
    return drawn(pixels, [](QPainter& painter, const QRectF& canvas) {
        const AppIconShapes shapes(canvas.width());
        const QRectF bounds = shapes.outline.boundingRect();
        QLinearGradient fill(bounds.topLeft(), bounds.bottomRight());
        fill.setColorAt(0, fillTop);
        fill.setColorAt(1, fillBottom);
        painter.fillPath(shapes.outline, fill);
        painter.setPen(QPen(rim, shapes.rimWidth));
        painter.drawPath(shapes.outline);
        painter.setClipPath(shapes.outline);
        painter.fillPath(shapes.letter, Qt::white);
    });
}

QByteArray appIconSvg() {
    constexpr int side = 256;
    const AppIconShapes shapes(side);
    const QByteArray size = QByteArray::number(side);
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" +
           size + "\" height=\"" + size + "\" viewBox=\"0 0 " + size + ' ' + size +
           "\">\n"
           "<defs><linearGradient id=\"fill\" x1=\"0\" y1=\"0\" x2=\"1\" y2=\"1\">"
           "<stop offset=\"0\" stop-color=\"" +
           fillTop.name().toLatin1() +
           "\"/>"
           "<stop offset=\"1\" stop-color=\"" +
           fillBottom.name().toLatin1() +
           "\"/>"
           "</linearGradient></defs>\n"
           "<path d=\"" +
           svgPathData(shapes.outline) + "\" fill=\"url(#fill)\" stroke=\"#ffffff\" stroke-opacity=\"" +
           number(rim.alphaF()) + "\" stroke-width=\"" + number(shapes.rimWidth) +
           "\"/>\n"
           "<path d=\"" +
           svgPathData(shapes.letter) +
           "\" fill=\"#ffffff\"/>\n"
           "</svg>\n";
}

QPixmap bubbleImage(int size) {
    constexpr int scale = 4;
    QPixmap pixmap = QPixmap::fromImage(appIconImage(size * scale));
    pixmap.setDevicePixelRatio(scale);
    return pixmap;
}

} // namespace BrandIcon
