#pragma once

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
#include "NubraPlatform/wayland/WaylandEventMonitors.h"
#include "NubraPlatform/wayland/WaylandFrontApplications.h"

// The real desktop of a Wayland session. Nubra's own windows, X11 applications, screens and the hot key
// go through XWayland as on X11; Wayland applications are read through accessibility, whose selection
// changes stand in for the pointer gestures Wayland keeps to itself.
class WaylandDesktop final : public PlatformDesktop {
public:
    explicit WaylandDesktop(const DesktopSession& session);

    Desktop desktop() override;
    const DesktopCapabilities& capabilities() const override { return m_capabilities; }

private:
    DesktopCapabilities m_capabilities;
    // Applications on XWayland are read as on X11; native Wayland windows have no known place on GNOME.
    AtspiAccessibility m_accessibility{
        AtspiWindows{[this] { return m_x11.activeWindowRect(); },
                     [this](qint64 process) { return m_x11.showsWindowOf(process); },
                     {}}};
    DesktopEntryNames m_entryNames;
    X11Desktop m_x11{m_entryNames};
    WaylandFrontApplications m_front{m_x11, m_accessibility, m_entryNames};
    ProcTreelessApplications m_treeless{m_entryNames};
    QtPasteboard m_pasteboard;
    X11PrimarySelection m_primarySelection;
    X11Keyboard m_keyboard{m_pasteboard};
    WaylandEventMonitors m_eventMonitors;
    X11Hotkeys m_hotkeys;
    QtClock m_clock;
    QtTaskRunner m_tasks;
};
