#include "NubraApp/Overlay/CardPlacement.h"

#include <algorithm>

namespace CardPlacement {

namespace {
constexpr double leftOfCentre = 178;
constexpr double gapBelow = 26;
constexpr double lowestBottom = 80;
constexpr double gapAbove = 12;
constexpr double leftMargin = 8;
constexpr double rightClamp = 364;
} // namespace

Placement place(const QRectF& selection, double fittingHeight, const std::optional<QRectF>& visibleFrame) {
    Placement placement;
    double x = selection.center().x() - leftOfCentre;
    double y = selection.y() - fittingHeight - gapBelow;
    const double frameBottom = visibleFrame ? visibleFrame->y() : 0;
    if (y < frameBottom + lowestBottom) {
        y = selection.y() + selection.height() + gapAbove;
        placement.above = true;
    }
    // The right clamp is applied last, so it wins on a frame too narrow for both.
    if (visibleFrame) {
        x = std::max(x, visibleFrame->x() + leftMargin);
        x = std::min(x, visibleFrame->x() + visibleFrame->width() - rightClamp);
    }
    placement.origin = {x, y};
    return placement;
}

} // namespace CardPlacement
