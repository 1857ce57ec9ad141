#pragma once

#include "NubraPlatform/DesktopShortcuts.h"
#include "NubraPlatform/PlatformDesktop.h"
#include "NubraPlatform/linux/AtspiAccessibility.h"
#include "NubraPlatform/linux/DesktopEntryNames.h"
#include "NubraPlatform/linux/ProcTreelessApplications.h"
#include "NubraPlatform/linux/QtClock.h"
#include "NubraPlatform/linux/QtPasteboard.h"
#include "NubraPlatform/linux/QtTaskRunner.h"
#include "NubraPlatform/linux/X11Desktop.h"
#include "NubraPlatform/linux/X11Hotkeys.h"
#include "NubraPlatform/linux/X11Keyboard.h"
#include "NubraPlatform/linux/X11PrimarySelection.h"
#include "NubraPlatform/wayland/CompositorFrontApplications.h"
#include "NubraPlatform/wayland/CompositorWindows.h"
#include "NubraPlatform/wayland/DataControlPasteboard.h"
#include "NubraPlatform/wayland/DataControlPrimarySelection.h"
#include "NubraPlatform/wayland/PortalHotkeys.h"
#include "NubraPlatform/wayland/PortalKeyboard.h"
#include "NubraPlatform/wayland/PortalScreenshot.h"
#include "NubraPlatform/wayland/VirtualKeyboard.h"
#include "NubraPlatform/wayland/WaylandConnection.h"
#include "NubraPlatform/wayland/WaylandEventMonitors.h"
#include "NubraPlatform/wayland/WaylandFrontApplications.h"

// The real desktop of a Wayland session. Nubra's own windows, X11 applications, screens and, where the
// desktop has no shortcuts portal, the hot key go through XWayland as on X11; Wayland applications are read
// through accessibility, whose selection changes stand in for the pointer gestures Wayland keeps to itself.
// Where the compositor offers data-control and the virtual keyboard (wlroots), the clipboard, the primary
// selection and the copy go through a Wayland connection of our own, which also sees Wayland applications;
// elsewhere the copy reaches them through the desktop's remote-desktop portal once the user allows it. Window
// origins come from the compositor's IPC where it has one (sway, Hyprland).
class WaylandDesktop final : public PlatformDesktop {
public:
    explicit WaylandDesktop(const DesktopSession& session);
    ~WaylandDesktop() override;

    Desktop desktop() override;
    const DesktopCapabilities& capabilities() const override { return m_capabilities; }

private:
    // The focused window's rectangle where the compositor tells it; nothing to ask where it does not.
    std::function<std::optional<QRect>()> compositorWindow();

    WaylandConnection m_wayland; // before the capabilities, which ask it what the compositor offers
    DesktopCapabilities m_capabilities;
    CompositorWindows m_compositorWindows;
    // Applications on XWayland are read as on X11; native Wayland windows count from the compositor's.
    AtspiAccessibility m_accessibility{
        AtspiWindows{[this] { return m_x11.activeWindowRect(); },
                     [this](qint64 process) { return m_x11.showsWindowOf(process); }, compositorWindow()}};
    DesktopEntryNames m_entryNames;
    X11Desktop m_x11{m_entryNames};
    WaylandFrontApplications m_front{m_x11, m_accessibility, m_entryNames};
    CompositorFrontApplications m_compositorFront{m_compositorWindows, m_entryNames, m_front};
    ProcTreelessApplications m_treeless{m_entryNames};
    QtPasteboard m_pasteboard;
    X11PrimarySelection m_primarySelection;
    X11Keyboard m_keyboard{m_pasteboard};
    DataControlPasteboard m_dataControlPasteboard{m_wayland};
    DataControlPrimarySelection m_dataControlPrimary{m_wayland};
    VirtualKeyboard m_virtualKeyboard{m_wayland};
    PortalKeyboard m_portalKeyboard{m_keyboard, QDBusConnection::sessionBus()};
    WaylandEventMonitors m_eventMonitors;
    X11Hotkeys m_hotkeys;
    PortalHotkeys m_portalHotkeys{m_hotkeys, QDBusConnection::sessionBus()};
    std::unique_ptr<DesktopShortcuts> m_shortcuts;
    QtClock m_clock;
    QtTaskRunner m_tasks;
    // An XWayland grab shows native Wayland windows black: the desktop takes the picture.
    PortalScreenshot m_screenshot{QDBusConnection::sessionBus()};
};
