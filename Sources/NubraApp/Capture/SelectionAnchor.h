#pragma once

#include "NubraPlatform/ScreenSpace.h"

#include <QPointF>
#include <QRectF>

// Where a selection is taken to be when the desktop keeps its place to itself (a Wayland window whose
// position the compositor does not tell): a line across the middle of the screen, a fifth of the way
// down its usable area. The bubble then sits above the line's right end and the card below it, always
// in the same spot, on the screen that holds `pointer`. Global coordinates, bottom-left origin.
namespace SelectionAnchor {

inline constexpr double lineWidth = 240;
inline constexpr double lineHeight = 20;
inline constexpr double fromTop = 0.2;

QRectF bounds(const ScreenSpace& screens, const QPointF& pointer);

} // namespace SelectionAnchor
