#pragma once

#include "NubraPlatform/DesktopShortcuts.h"
#include "NubraPlatform/PlatformDesktop.h"
#include "NubraPlatform/linux/AtspiAccessibility.h"
#include "NubraPlatform/linux/DesktopEntryNames.h"
#include "NubraPlatform/linux/ProcTreelessApplications.h"
#include "NubraPlatform/linux/QtClock.h"
#include "NubraPlatform/linux/QtPasteboard.h"
#include "NubraPlatform/linux/QtScreenPicture.h"
#include "NubraPlatform/linux/QtTaskRunner.h"
#include "NubraPlatform/linux/X11Desktop.h"
#include "NubraPlatform/linux/X11EventMonitors.h"
#include "NubraPlatform/linux/X11Hotkeys.h"
#include "NubraPlatform/linux/X11Keyboard.h"
#include "NubraPlatform/linux/X11PrimarySelection.h"

// The real desktop of an X11 session.
class LinuxDesktop final : public PlatformDesktop {
public:
    explicit LinuxDesktop(const DesktopSession& session)
        : m_capabilities(DesktopCapabilities::forSession(session)) {}

    Desktop desktop() override {
        return {accessibility, x11,     treeless,  x11,   pasteboard, primarySelection, keyboard,
                eventMonitors, hotkeys, shortcuts, clock, tasks,      m_capabilities,   screenPicture};
    }
    const DesktopCapabilities& capabilities() const override { return m_capabilities; }

private:
    DesktopCapabilities m_capabilities;
    AtspiAccessibility accessibility{AtspiWindows{[this] { return x11.activeWindowRect(); }, {}, {}}};
    DesktopEntryNames entryNames;
    X11Desktop x11{entryNames};
    ProcTreelessApplications treeless{entryNames};
    QtPasteboard pasteboard;
    X11PrimarySelection primarySelection;
    X11Keyboard keyboard{pasteboard};
    X11EventMonitors eventMonitors;
    X11Hotkeys hotkeys;
    NoDesktopShortcuts shortcuts; // the hot key is grabbed
    QtClock clock;
    QtTaskRunner tasks;
    QtScreenPicture screenPicture;
};
