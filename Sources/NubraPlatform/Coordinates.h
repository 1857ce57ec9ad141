#pragma once

#include <QPointF>
#include <QRectF>

// The one place where top-left-origin desktop coordinates (X11, AT-SPI, the accessibility bounds)
// become the bottom-left-origin global coordinates of snapshots and bubbles, and back.
namespace Coordinates {

// y becomes H - (y + height); x, width and height stay.
QRectF flipRect(const QRectF& rect, double primaryHeight);
QPointF flipPoint(const QPointF& point, double primaryHeight);

} // namespace Coordinates
