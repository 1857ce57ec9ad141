#pragma once

#include "NubraPlatform/Desktop.h"
#include "NubraPlatform/linux/AtspiAccessibility.h"
#include "NubraPlatform/linux/DesktopEntryNames.h"
#include "NubraPlatform/linux/ProcTreelessApplications.h"
#include "NubraPlatform/linux/QtClock.h"
#include "NubraPlatform/linux/QtPasteboard.h"
#include "NubraPlatform/linux/QtTaskRunner.h"
#include "NubraPlatform/linux/X11Desktop.h"
#include "NubraPlatform/linux/X11EventMonitors.h"
#include "NubraPlatform/linux/X11Hotkeys.h"
#include "NubraPlatform/linux/X11Keyboard.h"
#include "NubraPlatform/linux/X11PrimarySelection.h"

// The real desktop of an X11 session. Call `prepareProcess()` before creating the QGuiApplication,
// then create the desktop on the main thread.
struct LinuxDesktop {
    // The GUI thread must not run the default GLib context: the accessibility thread does (see
    // AtspiThread). Qt then uses its own event dispatcher. An X error never ends the process.
    static void prepareProcess() {
        qputenv("QT_NO_GLIB", "1");
        X11Connection::keepRunningOnErrors();
    }

    AtspiAccessibility accessibility{AtspiWindows{[this] { return x11.activeWindowRect(); }, {}, {}}};
    DesktopEntryNames entryNames;
    X11Desktop x11{entryNames};
    ProcTreelessApplications treeless{entryNames};
    QtPasteboard pasteboard;
    X11PrimarySelection primarySelection;
    X11Keyboard keyboard{pasteboard};
    X11EventMonitors eventMonitors;
    X11Hotkeys hotkeys;
    QtClock clock;
    QtTaskRunner tasks;

    Desktop desktop() {
        return {accessibility, x11,           treeless, x11,   pasteboard, primarySelection,
                keyboard,      eventMonitors, hotkeys,  clock, tasks};
    }
};
