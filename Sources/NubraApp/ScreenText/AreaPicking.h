#pragma once

#include "NubraPlatform/ScreenPicture.h"

#include <QRect>

#include <functional>
#include <optional>
#include <vector>

// An area the user marked on a still picture of the screen.
struct PickedArea {
    std::size_t shot = 0; // which of the pictures
    QRect pixels;         // in that picture's pixels
    QRect onScreen;       // where it was marked, in Qt's logical coordinates
};

// Where the user marks the area to read: the picture shown over the screens, the area dragged on it.
class AreaPicking {
public:
    virtual ~AreaPicking() = default;

    // Shows `shots` and calls `done` once on the main thread with the area, or with nothing when the user
    // cancelled (Escape, a right click, a click without a drag) or cancel() was called.
    virtual void pick(const std::vector<ScreenShot>& shots,
                      std::function<void(std::optional<PickedArea>)> done) = 0;
    virtual void cancel() = 0;
};
