#pragma once

#include "NubraPlatform/ScreenSpace.h"

#include <QPointF>

// Screen facts in the product's global coordinates: origin at the bottom-left of the primary display,
// y growing upwards.
class ScreenGeometry {
public:
    virtual ~ScreenGeometry() = default;

    // Height of the primary display, the one whose frame starts at (0, 0).
    virtual double primaryScreenHeight() = 0;
    // Every screen, for placing windows next to a selection. Main thread only.
    virtual ScreenSpace screens() = 0;
    virtual QPointF mouseLocation() = 0;
};
