#include "NubraCore/Capture/TerminalEmulators.h"

#include <QSet>
#include <QStringList>

namespace TerminalEmulators {

bool isTerminalClass(const QString& windowClass) {
    // The class each emulator sets on its windows, lower-cased; reverse-DNS names are the application
    // ids that GTK 4, Flatpak and newer KDE builds use instead.
    static const QSet<QString> classes = [] {
        const QStringList names =
            QStringLiteral("xterm uxterm urxvt rxvt st st-256color "
                           "gnome-terminal gnome-terminal-server org.gnome.terminal kgx org.gnome.console "
                           "ptyxis org.gnome.ptyxis konsole org.kde.konsole yakuake xfce4-terminal "
                           "lxterminal qterminal mate-terminal terminator tilix com.gexperts.tilix guake "
                           "tilda sakura terminology roxterm deepin-terminal io.elementary.terminal "
                           "alacritty kitty foot footclient wezterm org.wezfurlong.wezterm ghostty "
                           "com.mitchellh.ghostty contour cool-retro-term tabby hyper eterm aterm "
                           "x-terminal-emulator")
                .split(u' ');
        return QSet<QString>(names.cbegin(), names.cend());
    }();
    return classes.contains(windowClass.toLower());
}

} // namespace TerminalEmulators
