#pragma once

#include "NubraPlatform/Desktop.h"
#include "NubraPlatform/DesktopCapabilities.h"
#include "NubraPlatform/DesktopSession.h"

#include <memory>

// The real desktop Nubra runs on, whichever kind of session it is: the one place that looks at the
// session and picks the backend. Call `prepareProcess()` before the QGuiApplication exists, then
// `create()` on the main thread.
class PlatformDesktop {
public:
    virtual ~PlatformDesktop() = default;

    // Settles the process for the session: on Wayland with XWayland, Nubra's own windows are X11
    // windows (placed where asked, never taking focus), so Qt is told to use xcb.
    static DesktopSession prepareProcess();
    static std::unique_ptr<PlatformDesktop> create(const DesktopSession& session);

    virtual Desktop desktop() = 0;
    virtual const DesktopCapabilities& capabilities() const = 0;
};
