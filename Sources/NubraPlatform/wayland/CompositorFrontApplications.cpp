#include "NubraPlatform/wayland/CompositorFrontApplications.h"

#include "NubraPlatform/linux/DesktopEntryNames.h"
#include "NubraPlatform/wayland/CompositorWindows.h"

std::optional<FrontApp> CompositorFrontApplications::frontmost() {
    const std::optional<CompositorWindows::Window> window = m_windows.focusedWindow();
    if (!window || window->appId.isEmpty())
        return m_other.frontmost();
    // A Wayland app id is its desktop file's id ("org.gnome.TextEditor", "foot"); an XWayland window's
    // class is what X11 would have told.
    WindowAppHints hints;
    hints.applicationId = window->appId;
    hints.wmClass = window->appId;
    QString name = m_names.displayName(hints, DesktopEntryNames::interfaceLocales());
    if (name.isEmpty())
        name = window->appId;
    return FrontApp{name, window->appId, window->pid};
}
