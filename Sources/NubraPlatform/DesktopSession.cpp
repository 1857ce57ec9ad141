#include "NubraPlatform/DesktopSession.h"

#include <QStringList>

namespace {

// XDG_CURRENT_DESKTOP is a colon-separated list ("ubuntu:GNOME"); compositors that set it to their own
// name are matched here, the rest by the sockets they advertise.
struct KnownDesktop {
    const char* name;
    DesktopSession::Family family;
    const char* shownAs;
};
constexpr KnownDesktop knownDesktops[] = {
    {"gnome", DesktopSession::Family::gnome, "GNOME"},
    {"gnome-classic", DesktopSession::Family::gnome, "GNOME"},
    {"kde", DesktopSession::Family::kde, "KDE Plasma"},
    {"sway", DesktopSession::Family::wlroots, "sway"},
    {"hyprland", DesktopSession::Family::wlroots, "Hyprland"},
    {"river", DesktopSession::Family::wlroots, "river"},
    {"wayfire", DesktopSession::Family::wlroots, "Wayfire"},
    {"labwc", DesktopSession::Family::wlroots, "labwc"},
    {"dwl", DesktopSession::Family::wlroots, "dwl"},
};

} // namespace

DesktopSession DesktopSession::detect(const QProcessEnvironment& environment) {
    DesktopSession session;
    const bool wayland = !environment.value(QStringLiteral("WAYLAND_DISPLAY")).isEmpty() ||
                         environment.value(QStringLiteral("XDG_SESSION_TYPE")) == QLatin1String("wayland");
    const bool x11 = !environment.value(QStringLiteral("DISPLAY")).isEmpty();
    if (wayland)
        session.kind = x11 ? Kind::waylandWithXWayland : Kind::waylandOnly;
    else if (x11)
        session.kind = Kind::x11;
    else
        return session;

    if (!environment.value(QStringLiteral("SWAYSOCK")).isEmpty()) {
        session.family = Family::wlroots;
        session.compositor = QStringLiteral("sway");
    } else if (!environment.value(QStringLiteral("HYPRLAND_INSTANCE_SIGNATURE")).isEmpty()) {
        session.family = Family::wlroots;
        session.compositor = QStringLiteral("Hyprland");
    } else {
        const QStringList desktops = environment.value(QStringLiteral("XDG_CURRENT_DESKTOP"))
                                         .toLower()
                                         .split(u':', Qt::SkipEmptyParts);
        for (const QString& desktop : desktops) {
            for (const KnownDesktop& known : knownDesktops) {
                if (desktop == QLatin1String(known.name)) {
                    session.family = known.family;
                    session.compositor = QString::fromLatin1(known.shownAs);
                    break;
                }
            }
            if (!session.compositor.isEmpty())
                break;
        }
        if (session.compositor.isEmpty() &&
            environment.value(QStringLiteral("KDE_FULL_SESSION")) == QLatin1String("true")) {
            session.family = Family::kde;
            session.compositor = QStringLiteral("KDE Plasma");
        }
    }
    // On X11 the window manager places windows and X11 reports them all: the family that matters is X11.
    if (session.kind == Kind::x11)
        session.family = Family::x11;
    return session;
}
