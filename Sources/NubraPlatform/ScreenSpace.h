#pragma once

#include <QList>
#include <QPointF>
#include <QRect>
#include <QRectF>

#include <optional>

// One screen as Qt reports it: geometry and available area in logical pixels, top-left origin, and the
// device pixel ratio.
struct ScreenInfo {
    QRect geometry;
    QRect available;
    qreal devicePixelRatio = 1;
};

// The one conversion between the product's global coordinates (device pixels of the whole desktop,
// origin at its bottom left, as capture reports selections) and Qt's logical coordinates, in which
// windows are placed. Qt keeps each screen's top-left corner at its device position and divides
// distances inside the screen by its ratio, so the mapping is per screen.
//
// Placement rules (bubble, card) are written bottom-left-origin and in the units the user sees; they
// work in "placement space": the logical pixels of the screen that holds the selection, flipped about
// the desktop's height. With a ratio of 1 placement space and global coordinates are the same.
class ScreenSpace {
public:
    ScreenSpace() = default;
    // The first screen is the primary one.
    explicit ScreenSpace(QList<ScreenInfo> screens);

    bool isEmpty() const { return m_screens.isEmpty(); }
    // Height of the desktop in device pixels; 0 without screens.
    double deviceHeight() const { return m_deviceHeight; }

    // A device position (top-left origin, as X11 reports pointers) in logical coordinates.
    QPointF deviceToLogical(const QPointF& device) const;

    // A rectangle in Qt's logical coordinates (a window's, an area marked on screen) in global
    // coordinates, by the screen that holds its centre.
    QRectF logicalToGlobal(const QRectF& logical) const;
    // A rectangle in global coordinates, in placement space.
    QRectF toPlacement(const QRectF& global) const;
    // The available area of the screen that holds the centre of `global` (the nearest screen when none
    // does), in placement space; nothing without screens.
    std::optional<QRectF> visibleFrameFor(const QRectF& global) const;
    // The same area in global coordinates (device pixels, bottom-left origin).
    std::optional<QRectF> availableGlobalFor(const QRectF& global) const;
    // The logical top-left corner of a window `height` tall whose lower-left corner is `lowerLeft` in
    // placement space.
    QPointF windowTopLeft(const QPointF& lowerLeft, double height) const;

private:
    const ScreenInfo* screenAtDevice(const QPointF& device) const;
    QRectF deviceRect(const ScreenInfo& screen) const;
    QRectF flip(const QRectF& rect) const;

    QList<ScreenInfo> m_screens;
    double m_deviceHeight = 0;
};
