#pragma once

#include <QPointF>
#include <QRectF>

#include <optional>

// Where the card goes for a selection, in placement space (bottom-left origin, see ScreenSpace): below
// the selection, centred a little to the right of its middle, moved above it when it would come too low,
// and kept off the visible frame's left and right edges. There is no vertical clamp.
namespace CardPlacement {

inline constexpr double cardWidth = 356;

struct Placement {
    QPointF origin;     // the card's lower-left corner
    bool above = false; // the card sits above the selection: its bottom edge is the one that stays put
};

// `fittingHeight` is the card's height when it is placed; `visibleFrame` the visible frame of the
// selection's screen, when known.
Placement place(const QRectF& selection, double fittingHeight, const std::optional<QRectF>& visibleFrame);

} // namespace CardPlacement
