#include "NubraPlatform/ScreenSpace.h"

#include <QLineF>

#include <algorithm>
#include <limits>

namespace {

// Qt keeps a screen's top-left corner where it is in device pixels and scales the rest by its ratio.
QPointF toLogical(const ScreenInfo& screen, const QPointF& device) {
    const QPointF origin(screen.geometry.topLeft());
    return origin + (device - origin) / screen.devicePixelRatio;
}

} // namespace

ScreenSpace::ScreenSpace(QList<ScreenInfo> screens) : m_screens(std::move(screens)) {
    for (const ScreenInfo& screen : m_screens)
        m_deviceHeight = std::max(m_deviceHeight, deviceRect(screen).bottom());
}

QRectF ScreenSpace::deviceRect(const ScreenInfo& screen) const {
    return {QPointF(screen.geometry.topLeft()), QSizeF(screen.geometry.size()) * screen.devicePixelRatio};
}

QRectF ScreenSpace::flip(const QRectF& rect) const {
    return {rect.x(), m_deviceHeight - (rect.y() + rect.height()), rect.width(), rect.height()};
}

const ScreenInfo* ScreenSpace::screenAtDevice(const QPointF& device) const {
    const ScreenInfo* nearest = nullptr;
    double best = std::numeric_limits<double>::max();
    for (const ScreenInfo& screen : m_screens) {
        const QRectF rect = deviceRect(screen);
        // Half-open, so that the column where two screens meet belongs to the one that starts there.
        if (device.x() >= rect.left() && device.x() < rect.right() && device.y() >= rect.top() &&
            device.y() < rect.bottom())
            return &screen;
        const QPointF closest(std::clamp(device.x(), rect.left(), rect.right()),
                              std::clamp(device.y(), rect.top(), rect.bottom()));
        const double distance = QLineF(device, closest).length();
        if (distance < best) {
            best = distance;
            nearest = &screen;
        }
    }
    return nearest;
}

QPointF ScreenSpace::deviceToLogical(const QPointF& device) const {
    const ScreenInfo* screen = screenAtDevice(device);
    if (!screen)
        return device;
    return toLogical(*screen, device);
}

QRectF ScreenSpace::logicalToGlobal(const QRectF& logical) const {
    const ScreenInfo* holder = nullptr;
    for (const ScreenInfo& screen : m_screens)
        if (!holder || QRectF(screen.geometry).contains(logical.center()))
            holder = &screen;
    if (!holder)
        return flip(logical);
    const QPointF origin(holder->geometry.topLeft());
    const double ratio = holder->devicePixelRatio;
    return flip(QRectF(origin + (logical.topLeft() - origin) * ratio, logical.size() * ratio));
}

QRectF ScreenSpace::toPlacement(const QRectF& global) const {
    const QRectF device = flip(global);
    const ScreenInfo* screen = screenAtDevice(device.center());
    if (!screen)
        return global;
    // The whole rectangle goes by the screen that holds its centre, also where it reaches onto another.
    const QRectF logical(toLogical(*screen, device.topLeft()), device.size() / screen->devicePixelRatio);
    return flip(logical);
}

std::optional<QRectF> ScreenSpace::visibleFrameFor(const QRectF& global) const {
    const ScreenInfo* screen = screenAtDevice(flip(global).center());
    if (!screen)
        return std::nullopt;
    return flip(QRectF(screen->available));
}

std::optional<QRectF> ScreenSpace::availableGlobalFor(const QRectF& global) const {
    const ScreenInfo* screen = screenAtDevice(flip(global).center());
    if (!screen)
        return std::nullopt;
    const QPointF origin(screen->geometry.topLeft());
    const QRectF logical(screen->available);
    const double ratio = screen->devicePixelRatio;
    return flip(QRectF(origin + (logical.topLeft() - origin) * ratio, logical.size() * ratio));
}

QPointF ScreenSpace::windowTopLeft(const QPointF& lowerLeft, double height) const {
    return {lowerLeft.x(), m_deviceHeight - lowerLeft.y() - height};
}
