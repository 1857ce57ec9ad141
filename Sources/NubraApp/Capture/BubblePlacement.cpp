#include "NubraApp/Capture/BubblePlacement.h"

#include <algorithm>

namespace BubblePlacement {

namespace {
// The artwork's visual anchor sits this far inside the panel's corner.
constexpr double anchorInset = 15.4;
constexpr double panelPadding = 7;
constexpr double gapAbove = 12;
constexpr double screenMargin = 8;
constexpr double topMargin = 4;
} // namespace

QPointF origin(const QRectF& selection, const std::optional<QRectF>& visibleFrame) {
    const QRectF screen = visibleFrame.value_or(fallbackFrame);
    const double selMaxX = selection.x() + selection.width();
    const double selMaxY = selection.y() + selection.height();
    const double screenMaxX = screen.x() + screen.width();
    const double screenMaxY = screen.y() + screen.height();

    double x = selMaxX - anchorInset - panelPadding;
    double y = selMaxY + gapAbove - panelPadding;

    // The lower bound is applied last so it wins on a screen too narrow for both.
    x = std::min(x, screenMaxX - bubbleSize - screenMargin);
    x = std::max(x, screen.x() + screenMargin);

    if (screenMaxY - topMargin < y + bubbleSize)
        y = std::max(selection.y() - bubbleSize - gapAbove, screen.y() + screenMargin);
    return {x, y};
}

} // namespace BubblePlacement
