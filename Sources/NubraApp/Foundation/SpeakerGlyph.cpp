#include "NubraApp/Foundation/SpeakerGlyph.h"

#include <QPainter>
#include <QPainterPath>

#include <algorithm>

void SpeakerGlyph::paint(QPainter& painter, const QRectF& area, bool speaking, const QColor& color) {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal side = std::min(area.width(), area.height());
    const QRectF box(area.center().x() - side / 2, area.center().y() - side / 2, side, side);
    if (speaking) {
        const qreal inset = side * 0.2;
        painter.setPen(Qt::NoPen);
        painter.setBrush(color);
        painter.drawRoundedRect(box.adjusted(inset, inset, -inset, -inset), side * 0.08, side * 0.08);
        painter.restore();
        return;
    }
    // The body: a small box and the cone opening to the right.
    const qreal x = box.left(), y = box.top(), s = side;
    QPainterPath body;
    body.moveTo(x + 0.08 * s, y + 0.36 * s);
    body.lineTo(x + 0.26 * s, y + 0.36 * s);
    body.lineTo(x + 0.50 * s, y + 0.14 * s);
    body.lineTo(x + 0.50 * s, y + 0.86 * s);
    body.lineTo(x + 0.26 * s, y + 0.64 * s);
    body.lineTo(x + 0.08 * s, y + 0.64 * s);
    body.closeSubpath();
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawPath(body);
    // The waves: arcs centred on the cone's mouth.
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(color, std::max(1.0, s * 0.08), Qt::SolidLine, Qt::RoundCap));
    const QPointF mouth(x + 0.50 * s, y + 0.50 * s);
    for (const qreal radius : {0.18 * s, 0.34 * s})
        painter.drawArc(QRectF(mouth.x() - radius, mouth.y() - radius, 2 * radius, 2 * radius), -45 * 16,
                        90 * 16);
    painter.restore();
}
