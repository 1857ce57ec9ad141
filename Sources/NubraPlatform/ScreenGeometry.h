#pragma once

#include <QPointF>
#include <QRectF>

#include <optional>

// Screen facts in the product's global coordinates: origin at the bottom-left of the primary display,
// y growing upwards.
class ScreenGeometry {
public:
    virtual ~ScreenGeometry() = default;

    // Height of the primary display, the one whose frame starts at (0, 0).
    virtual double primaryScreenHeight() = 0;
    // The main screen's area not covered by panels or docks; absent without a screen.
    virtual std::optional<QRectF> mainVisibleFrame() = 0;
    virtual QPointF mouseLocation() = 0;
};
