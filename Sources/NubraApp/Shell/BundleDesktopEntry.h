#pragma once

#include "NubraCore/Update/Installation.h"

#include <QByteArray>
#include <QString>

// A bundle unpacked by hand (usually into ~/.local/opt/Nubra) has no package to put it in the
// application menu, so it adds itself: app.nubra.Nubra.desktop in $XDG_DATA_HOME/applications
// (~/.local/share/applications by default), the packaged entry with the bundle's own program and
// icon. It is rewritten only when it differs, so a bundle that was moved or updated fixes it at its
// next start.
class BundleDesktopEntry {
public:
    enum class Outcome { notBundle, unchanged, written, failed };

    // $XDG_DATA_HOME/applications/app.nubra.Nubra.desktop (~/.local/share/applications by default).
    static QString entryPath();
    // The entry for the bundle in `folder`.
    static QByteArray entryText(const QString& folder);
    // Writes the entry of `installation` when it is a bundle and the file holds anything else.
    // Touches the file system: keep it off the GUI thread.
    static Outcome refresh(const Installation& installation);
    // refresh() for the running Nubra, on the thread pool.
    static void refreshInBackground();
};
