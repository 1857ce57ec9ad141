#include "NubraPlatform/TextPlacement.h"

#include <algorithm>

namespace TextPlacement {

namespace {

bool anyOnScreen(const Measured& m) {
    return m.range || m.first || m.last;
}

QPointF origin(const Window& window) {
    QPointF margin;
    if (window.frame)
        margin = QPointF(std::max(0, window.rect->width() - int(window.frame->width())) / 2,
                         std::max(0, window.rect->height() - int(window.frame->height())) / 2);
    return QPointF(window.rect->topLeft()) + margin;
}

} // namespace

bool needsWindow(const Measured& measured, bool wayland) {
    return wayland || !anyOnScreen(measured);
}

std::optional<QRectF> onScreen(const Measured& m, const Window& window) {
    std::optional<QRectF> measured;
    // A browser that has published words before laying them out measures only part of the range, and
    // some of its characters have no rectangle yet: then nothing is known.
    if (m.first && m.last)
        measured = m.range ? m.range->united(*m.first).united(*m.last) : m.first->united(*m.last);
    else if (!anyOnScreen(m) && m.firstInWindow && m.lastInWindow)
        measured = m.firstInWindow->united(*m.lastInWindow);
    if (!measured)
        return std::nullopt;
    if (!needsWindow(m, window.wayland))
        return measured;
    if (!window.rect)
        return std::nullopt;
    return measured->translated(origin(window));
}

} // namespace TextPlacement
