#pragma once

#include <QRect>
#include <QRectF>
#include <QSizeF>

#include <optional>

// Where a range of text is on the screen, from what its toolkit measured. Toolkits on X11 answer in screen
// coordinates, except GTK 4, which measures single characters relative to its window only. Native Wayland
// clients know nothing of the screen: whatever they are asked, they answer relative to their window, which
// only the compositor can place.
namespace TextPlacement {

// The answers of the application for one range.
struct Measured {
    // Asked in screen coordinates: the range, its first and its last character.
    std::optional<QRectF> range;
    std::optional<QRectF> first;
    std::optional<QRectF> last;
    // Asked in window coordinates, when the three above gave nothing.
    std::optional<QRectF> firstInWindow;
    std::optional<QRectF> lastInWindow;
};

// The window the text is shown in.
struct Window {
    // A native Wayland window: every rectangle of its toolkit counts from the window.
    bool wayland = false;
    // Where the window is on the screen (its inside, device pixels), when the desktop tells.
    std::optional<QRect> rect;
    // The size the toolkit gives its top-level frame. A toolkit that draws its own shadow counts from
    // the frame inside it, and the shadow is shared equally between the sides.
    std::optional<QSizeF> frame;
};

// Whether the screen rectangle of `measured` needs the window's place: the window-coordinate answers
// then must be measured, and the window asked.
bool needsWindow(const Measured& measured, bool wayland);

// The range's rectangle on the screen (device pixels, top-left origin), or nothing when it cannot be
// known: a browser that has laid out only part of the range, or a Wayland window the compositor does
// not place. Window-relative numbers are never passed off as screen coordinates.
std::optional<QRectF> onScreen(const Measured& measured, const Window& window);

} // namespace TextPlacement
