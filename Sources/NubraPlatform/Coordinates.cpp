#include "NubraPlatform/Coordinates.h"

namespace Coordinates {

QRectF flipRect(const QRectF& rect, double primaryHeight) {
    return {rect.x(), primaryHeight - (rect.y() + rect.height()), rect.width(), rect.height()};
}

QPointF flipPoint(const QPointF& point, double primaryHeight) {
    return {point.x(), primaryHeight - point.y()};
}

} // namespace Coordinates
