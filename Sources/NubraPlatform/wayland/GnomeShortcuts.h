#pragma once

#include "NubraPlatform/DesktopShortcuts.h"

// Nubra's lookup as a custom keyboard shortcut of GNOME's settings daemon, in GSettings: a path of our
// own in media-keys' `custom-keybindings`, beside the user's, with its name, command and accelerator.
// A combination GNOME or another custom shortcut already uses is reported and never taken over.
class GnomeShortcuts final : public BlockingShortcuts {
public:
    static constexpr const char* ownPath =
        "/org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/nubra-lookup/";

    // `program` is the absolute path of the nubra executable.
    explicit GnomeShortcuts(QString program);

    // Whether GNOME's settings daemon keeps custom shortcuts here (its schemas are installed).
    static bool available();

    Setup setup() const override { return Setup::automatic; }
    QString desktopName() const override { return QStringLiteral("GNOME"); }
    QString configLine(const HotkeyCombo&) const override { return {}; }
    Status query(const HotkeyCombo& combo) override;
    Status add(const HotkeyCombo& combo) override;
    Status remove() override;

private:
    QString m_command;
};
