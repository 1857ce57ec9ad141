#pragma once

#include "NubraPlatform/DesktopSession.h"

#include <QList>
#include <QString>
#include <QStringList>

// The Wayland protocols a compositor advertised to a client of ours.
struct WaylandGlobals {
    bool extDataControl = false;
    bool wlrDataControl = false;
    bool virtualKeyboard = false;
};

// What the desktop's portals (xdg-desktop-portal) offer an application of ours.
struct PortalOffers {
    bool globalShortcuts = false;
    bool remoteDesktop = false;
};

// One thing capture does, as this session allows it: working, working once the user takes a step
// (which is named), or not possible here.
struct Capability {
    enum class State { works, needsStep, notPossible };

    QString name;
    State state = State::works;
    QString detail; // how it works here, or what is missing
    QString step;   // what the user does about it, with needsStep

    // "✓ ", "→ " or "✗ ".
    QString mark() const;
    // "✓ Name: detail", "→ Name: detail — step", "✗ Name: detail", in the interface language.
    QString line() const;
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
    // remoteDesktop: through the RemoteDesktop portal, which the user turns on (the desktop asks).
    enum class Copy { xtest, virtualKeyboard, remoteDesktop, x11WindowsOnly, none };
    // Where the selection is on screen for applications that report it relative to their window.
    enum class Placement { exact, compositorOrigin, anchor };
    // grab: from the X server; portal: the GlobalShortcuts portal binds it; desktopSettings: the desktop
    // runs `nubra --lookup` on a shortcut added to its own settings (GNOME, sway, Hyprland); elsewhere
    // only X11 applications pass keys to Nubra, and a shortcut the user makes himself is the way.
    enum class Hotkey { grab, portal, desktopSettings, x11WindowsOnly, none };

    DesktopSession session;
    Gestures gestures = Gestures::everywhere;
    // A selection that has stopped changing counts as made (desktops that hide the pointer).
    bool settledSelections = false;
    Primary primary = Primary::x11;
    QString primaryProtocol; // the data-control protocol in use, when that is the source
    Copy copy = Copy::xtest;
    // With Copy::remoteDesktop: the user turned it on and the desktop agreed.
    bool remoteDesktopAllowed = false;
    Placement placement = Placement::exact;
    // Nubra's own windows are X11 windows: placed where asked and never taking focus. Without that
    // there is no bubble.
    bool ownWindowsPlaced = true;
    Hotkey hotkey = Hotkey::grab;
    // With Hotkey::desktopSettings: the desktop's own settings run Nubra's lookup on a key.
    bool desktopShortcutActive = false;

    static DesktopCapabilities forSession(const DesktopSession& session, const WaylandGlobals& globals = {},
                                          const PortalOffers& portals = {});

    // Whether a mode that needs modifiers or click counts can be seen in every application.
    bool seesAllGestures() const { return gestures == Gestures::everywhere; }
    bool showsBubble() const { return ownWindowsPlaced; }

    // The session, then how selections are noticed, read and copied, where the bubble and the card go
    // and the hot key, in the interface language. What only the running application knows (whether the
    // user took a step) is its to fill in.
    QString sessionLine() const;
    QList<Capability> listing() const;
    // The session line and each capability's line, for the diagnosis and the capture probe.
    QStringList report() const;
};
