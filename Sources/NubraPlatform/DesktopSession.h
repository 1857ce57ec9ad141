#pragma once

#include <QProcessEnvironment>
#include <QString>

// What kind of graphical session Nubra runs in, read once at start-up from the environment the session
// gives its applications.
struct DesktopSession {
    enum class Kind {
        none,                // no display at all
        x11,                 // an X11 session
        waylandWithXWayland, // Wayland, with an X server for X11 applications (DISPLAY is set)
        waylandOnly,         // Wayland without XWayland
    };
    enum class Family { x11, gnome, kde, wlroots, other };

    Kind kind = Kind::none;
    Family family = Family::other;
    // The compositor or window manager as people call it ("sway", "GNOME"); empty when unknown.
    QString compositor;

    bool isWayland() const { return kind == Kind::waylandWithXWayland || kind == Kind::waylandOnly; }
    bool hasX11() const { return kind == Kind::x11 || kind == Kind::waylandWithXWayland; }

    static DesktopSession
    detect(const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment());

    friend bool operator==(const DesktopSession&, const DesktopSession&) = default;
};
