#include "NubraApp/Capture/SelectionAnchor.h"

#include "NubraApp/Capture/BubblePlacement.h"

#include <algorithm>

namespace SelectionAnchor {

QRectF bounds(const ScreenSpace& screens, const QPointF& pointer) {
    const QRectF frame =
        screens.availableGlobalFor(QRectF(pointer, QSizeF(1, 1))).value_or(BubblePlacement::fallbackFrame);
    const double width = std::min(lineWidth, frame.width() / 2);
    const double top = frame.y() + frame.height() * (1 - fromTop);
    return {frame.center().x() - width / 2, top - lineHeight, width, lineHeight};
}

} // namespace SelectionAnchor
