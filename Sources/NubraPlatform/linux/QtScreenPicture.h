#pragma once

#include "NubraPlatform/ScreenPicture.h"

// Every screen grabbed from the X server, as it shows now. Under XWayland that would show native Wayland
// windows black, so only X11 sessions use it.
class QtScreenPicture final : public ScreenPicture {
public:
    void take(QObject* context, std::function<void(Result)> done) override;
};
