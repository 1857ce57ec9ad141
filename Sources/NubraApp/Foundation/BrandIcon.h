#pragma once

#include <QIcon>
#include <QPainterPath>
#include <QPixmap>
#include <QRectF>
#include <QString>

// Nubra's brand mark, drawn rather than shipped: a superellipse with the letter N cut out of it for
// the tray, a moon while paused, and the coloured mark of the bubble and the application icon. Every
// image is drawn at the device pixel ratio it is shown at; the installed icons are drawn from the same
// shapes at build time.
namespace BrandIcon {

inline constexpr double superellipseExponent = 3.6;
inline constexpr int superellipseSegments = 160;

// |x/a|^n + |y/b|^n = 1 filling `rect`, as a closed polygon starting at the right-hand midpoint.
QPainterPath squirclePath(const QRectF& rect, double n = superellipseExponent);

// The tray icon: the mark (white, the letter cut out) or, while paused, a moon.
QIcon menuBarIcon(bool paused);
// What the tray icon says to screen readers and in its tooltip: "Nubra", or "Nubra paused" with the
// moon.
QString menuBarIconDescription(bool paused);
// The mark alone at `pixels` x `pixels` device pixels.
QImage markImage(int pixels);

// The application's icon: the coloured mark with a white letter, `pixels` x `pixels`.
QImage appIconImage(int pixels);
// The same icon as a scalable SVG document.
QByteArray appIconSvg();

// The bubble's artwork (the application's icon): `size` x `size` logical pixels, drawn at four times
// that in each direction so it stays sharp at any scale.
QPixmap bubbleImage(int size);

} // namespace BrandIcon
