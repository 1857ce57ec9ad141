#include "NubraApp/Onboarding/Symbols.h"

#include <QPainter>
#include <QPainterPath>
#include <QPainterPathStroker>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

// Every drawing is made in a 100 x 100 box and scaled to the size asked for.
constexpr qreal unit = 100;
// A light weight: thin strokes, as large pictograms beside text look best.
constexpr qreal lineWidth = 5;
// The width of a mark cut out of a filled disc.
constexpr qreal cutWidth = 9;

bool isDark(const QPalette& palette) {
    return palette.color(QPalette::Window).lightness() < 128;
}

QPen outlinePen(const QColor& color) {
    QPen pen(color, lineWidth);
    pen.setCapStyle(Qt::RoundCap);
    pen.setJoinStyle(Qt::RoundJoin);
    return pen;
}

// A point on a circle, the angle in degrees counter-clockwise from three o'clock, as on a clock face
// seen on screen.
QPointF onCircle(QPointF centre, qreal radius, qreal degrees) {
    const qreal radians = degrees * std::numbers::pi / 180;
    return centre + QPointF(radius * std::cos(radians), -radius * std::sin(radians));
}

QPainterPath disc() {
    QPainterPath path;
    path.addEllipse(QPointF(50, 50), 46, 46);
    return path;
}

// A filled disc with `mark` (a stroked line) cut out of it.
void paintCutDisc(QPainter& painter, const QPainterPath& mark, const QColor& color) {
    QPainterPathStroker stroker;
    stroker.setWidth(cutWidth);
    stroker.setCapStyle(Qt::RoundCap);
    stroker.setJoinStyle(Qt::RoundJoin);
    painter.fillPath(disc().subtracted(stroker.createStroke(mark)), color);
}

QPainterPath checkMark(QPointF start, QPointF corner, QPointF end) {
    QPainterPath path(start);
    path.lineTo(corner);
    path.lineTo(end);
    return path;
}

void paintHandTap(QPainter& painter, const QColor& color) {
    painter.setPen(outlinePen(color));
    painter.setBrush(Qt::NoBrush);

    // The tap: a ripple over the fingertip.
    const QPointF tip(40, 27);
    QPainterPath ripple;
    ripple.arcMoveTo(QRectF(tip.x() - 17, tip.y() - 17, 34, 34), 155);
    ripple.arcTo(QRectF(tip.x() - 17, tip.y() - 17, 34, 34), 155, -130);
    painter.drawPath(ripple);

    // The hand: the index finger up, the other fingers curled, the thumb folded in on the left.
    QPainterPath hand(QPointF(34, 62));
    hand.lineTo(34, 27);
    hand.arcTo(QRectF(34, 21, 12, 12), 180, -180); // fingertip
    hand.lineTo(46, 50);
    hand.arcTo(QRectF(46, 44, 12, 12), 180, -180); // middle finger
    hand.lineTo(58, 53);
    hand.arcTo(QRectF(58, 48, 11, 11), 180, -180); // ring finger
    hand.lineTo(69, 57);
    hand.arcTo(QRectF(69, 53, 10, 10), 180, -180); // little finger
    hand.lineTo(79, 75);
    hand.cubicTo(QPointF(79, 87), QPointF(71, 94), QPointF(60, 94));
    hand.lineTo(50, 94);
    hand.cubicTo(QPointF(42, 94), QPointF(37, 90), QPointF(32, 83));
    hand.lineTo(22, 69);
    hand.cubicTo(QPointF(19, 65), QPointF(20, 60), QPointF(24, 59));
    hand.cubicTo(QPointF(28, 58), QPointF(31, 60), QPointF(34, 64));
    hand.lineTo(36, 67);
    painter.drawPath(hand);
}

void paintCheckmarkSeal(QPainter& painter, const QColor& color) {
    painter.setPen(outlinePen(color));
    painter.setBrush(Qt::NoBrush);
    // Twelve soft scallops round a circle.
    QPainterPath seal;
    constexpr int steps = 240;
    for (int i = 0; i <= steps; ++i) {
        const qreal degrees = 360.0 * i / steps;
        const qreal radius = 41 + 2.6 * std::cos(12 * degrees * std::numbers::pi / 180);
        const QPointF point = onCircle(QPointF(50, 50), radius, degrees);
        if (i == 0)
            seal.moveTo(point);
        else
            seal.lineTo(point);
    }
    seal.closeSubpath();
    painter.drawPath(seal);
    painter.drawPath(checkMark(QPointF(35, 51), QPointF(45, 61), QPointF(65, 39)));
}

// An arc round the centre from `from` degrees, turning clockwise through `sweep` degrees, ending in
// a filled arrowhead that points on round the circle.
void paintArrowArc(QPainter& painter, const QColor& color, qreal from, qreal sweep) {
    const QPointF centre(50, 50);
    constexpr qreal radius = 32;
    constexpr qreal headLength = 13;
    constexpr qreal headHalfWidth = 9;
    const QRectF circle(centre.x() - radius, centre.y() - radius, 2 * radius, 2 * radius);
    QPainterPath arc;
    arc.arcMoveTo(circle, from);
    arc.arcTo(circle, from, -sweep);
    painter.setPen(outlinePen(color));
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(arc);

    const qreal end = (from - sweep) * std::numbers::pi / 180;
    const QPointF base = onCircle(centre, radius, from - sweep);
    const QPointF ahead(std::sin(end), std::cos(end)); // clockwise on screen
    const QPointF outward(std::cos(end), -std::sin(end));
    QPolygonF head;
    head << base + outward * headHalfWidth << base + ahead * headLength << base - outward * headHalfWidth;
    painter.setPen(QPen(color, 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.setBrush(color);
    painter.drawPolygon(head);
}

void paintCirclePath(QPainter& painter, const QColor& color) {
    paintArrowArc(painter, color, 165, 125);
    paintArrowArc(painter, color, 345, 125);
}

} // namespace

namespace Symbols {

QColor color(SymbolTint tint, const QPalette& palette) {
    const bool dark = isDark(palette);
    switch (tint) {
    case SymbolTint::accent:
        return palette.color(QPalette::Highlight);
    case SymbolTint::orange:
        return dark ? QColor(255, 164, 36) : QColor(238, 134, 0);
    case SymbolTint::green:
        return dark ? QColor(60, 206, 96) : QColor(40, 170, 72);
    case SymbolTint::secondary: {
        QColor text = palette.color(QPalette::WindowText);
        text.setAlphaF(0.5f);
        return text;
    }
    }
    return palette.color(QPalette::WindowText);
}

void paint(QPainter& painter, const QRectF& box, Symbol symbol, const QColor& color) {
    const qreal side = std::min(box.width(), box.height());
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(box.center() - QPointF(side / 2, side / 2));
    painter.scale(side / unit, side / unit);
    switch (symbol) {
    case Symbol::handTap:
        paintHandTap(painter, color);
        break;
    case Symbol::checkmarkSeal:
        paintCheckmarkSeal(painter, color);
        break;
    case Symbol::circlePath:
        paintCirclePath(painter, color);
        break;
    case Symbol::checkmarkCircle:
        paintCutDisc(painter, checkMark(QPointF(29, 51), QPointF(43, 65), QPointF(71, 36)), color);
        break;
    case Symbol::xmarkCircle: {
        QPainterPath cross(QPointF(35, 35));
        cross.lineTo(65, 65);
        cross.moveTo(65, 35);
        cross.lineTo(35, 65);
        paintCutDisc(painter, cross, color);
        break;
    }
    }
    painter.restore();
}

} // namespace Symbols

SymbolView::SymbolView(Symbol symbol, SymbolTint tint, int size, QWidget* parent)
    : QWidget(parent), m_symbol(symbol), m_tint(tint) {
    setFixedSize(size, size);
}

void SymbolView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    Symbols::paint(painter, rect(), m_symbol, Symbols::color(m_tint, palette()));
}

SymbolButton::SymbolButton(Symbol symbol, SymbolTint tint, int size, QWidget* parent)
    : QAbstractButton(parent), m_symbol(symbol), m_tint(tint), m_size(size) {
    setFixedSize(size, size);
    setCursor(Qt::PointingHandCursor);
    setAttribute(Qt::WA_Hover);
}

void SymbolButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    QColor color = Symbols::color(m_tint, palette());
    if (isDown() || underMouse())
        color.setAlphaF(std::min(1.0f, color.alphaF() * 1.6f));
    Symbols::paint(painter, rect(), m_symbol, color);
}
