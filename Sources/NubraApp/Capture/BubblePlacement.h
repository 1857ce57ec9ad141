#pragma once

#include <QPointF>
#include <QRectF>

#include <optional>

// Where the bubble goes for a selection, all in bottom-left-origin global coordinates: just above the
// selection's end, kept inside the visible frame, flipped below the selection near the top.
namespace BubblePlacement {

inline constexpr double bubbleSize = 44;
// Used when there is no main screen.
inline constexpr QRectF fallbackFrame{0, 0, 1440, 900};

QPointF origin(const QRectF& selection, const std::optional<QRectF>& visibleFrame);

} // namespace BubblePlacement
