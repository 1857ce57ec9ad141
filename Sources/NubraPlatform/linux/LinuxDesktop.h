#pragma once

#include "NubraPlatform/Desktop.h"
#include "NubraPlatform/linux/AtspiAccessibility.h"
#include "NubraPlatform/linux/QtClock.h"
#include "NubraPlatform/linux/QtPasteboard.h"
#include "NubraPlatform/linux/QtTaskRunner.h"
#include "NubraPlatform/linux/X11Desktop.h"
#include "NubraPlatform/linux/X11EventMonitors.h"
#include "NubraPlatform/linux/X11Hotkeys.h"
#include "NubraPlatform/linux/X11Keyboard.h"

// The real desktop of an X11 session. Create it on the main thread after the QGuiApplication.
struct LinuxDesktop {
    AtspiAccessibility accessibility;
    X11Desktop x11;
    QtPasteboard pasteboard;
    QtPrimarySelection primarySelection;
    X11Keyboard keyboard{pasteboard};
    X11EventMonitors eventMonitors;
    X11Hotkeys hotkeys;
    QtClock clock;
    QtTaskRunner tasks;

    Desktop desktop() {
        return {accessibility, x11,           x11,     pasteboard, primarySelection,
                keyboard,      eventMonitors, hotkeys, clock,      tasks};
    }
};
