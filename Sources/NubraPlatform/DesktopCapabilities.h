#pragma once

#include "NubraPlatform/DesktopSession.h"

#include <QString>
#include <QStringList>

// The Wayland protocols a compositor advertised to a client of ours.
struct WaylandGlobals {
    bool extDataControl = false;
    bool wlrDataControl = false;
    bool virtualKeyboard = false;
};

// What capture can do in this session: how a selection is noticed, read and answered in place. Derived
// once at start-up by the backend that runs the session; the application reads it to say what works
// and to pick among the trigger sources it offers, never to ask which desktop it runs on.
struct DesktopCapabilities {
    // Mouse releases, click counts and held modifiers of the applications the user reads in.
    enum class Gestures { everywhere, x11WindowsOnly, none };
    // Where the primary selection is read from, and whether its changes can be seen.
    enum class Primary { x11, xwaylandBridge, dataControl, none };
    // How the synthetic copy reaches an application without accessibility.
    enum class Copy { xtest, virtualKeyboard, x11WindowsOnly, none };
    // Where the selection is on screen for applications that report it relative to their window.
    enum class Placement { exact, compositorOrigin, anchor };
    enum class Hotkey { grab, x11WindowsOnly, none };

    DesktopSession session;
    Gestures gestures = Gestures::everywhere;
    // A selection that has stopped changing counts as made (desktops that hide the pointer).
    bool settledSelections = false;
    Primary primary = Primary::x11;
    QString primaryProtocol; // the data-control protocol in use, when that is the source
    Copy copy = Copy::xtest;
    Placement placement = Placement::exact;
    // Nubra's own windows are X11 windows: placed where asked and never taking focus. Without that
    // there is no bubble.
    bool ownWindowsPlaced = true;
    Hotkey hotkey = Hotkey::grab;

    static DesktopCapabilities forSession(const DesktopSession& session, const WaylandGlobals& globals = {});

    // Whether a mode that needs modifiers or click counts can be seen in every application.
    bool seesAllGestures() const { return gestures == Gestures::everywhere; }
    bool showsBubble() const { return ownWindowsPlaced; }

    // One line per capability, in the interface language, for the diagnosis, the onboarding and the
    // capture probe.
    QStringList report() const;
};
