#include "NubraPlatform/PlatformDesktop.h"

#include "NubraPlatform/linux/LinuxDesktop.h"
#include "NubraPlatform/wayland/WaylandDesktop.h"

DesktopSession PlatformDesktop::prepareProcess() {
    const DesktopSession session = DesktopSession::detect();
    // The GUI thread must not run the default GLib context: the accessibility thread does (see
    // AtspiThread). Qt then uses its own event dispatcher.
    qputenv("QT_NO_GLIB", "1");
    // An X error never ends the process.
    if (session.hasX11())
        X11Connection::keepRunningOnErrors();
    if (session.kind == DesktopSession::Kind::waylandWithXWayland)
        qputenv("QT_QPA_PLATFORM", "xcb");
    return session;
}

std::unique_ptr<PlatformDesktop> PlatformDesktop::create(const DesktopSession& session) {
    if (session.isWayland())
        return std::make_unique<WaylandDesktop>(session);
    return std::make_unique<LinuxDesktop>(session);
}
