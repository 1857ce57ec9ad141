#pragma once

#include "NubraPlatform/DesktopShortcuts.h"

// Nubra's lookup as a `bind` line of Hyprland's configuration, which the user adds. Whether it is
// there, and what else the combination runs, comes from Hyprland's socket (`j/binds`).
class HyprlandShortcuts final : public BlockingShortcuts {
public:
    // `socketPath` may be empty: then nothing can be told of the bindings.
    HyprlandShortcuts(QString program, QString socketPath);

    Setup setup() const override { return Setup::configLine; }
    QString desktopName() const override { return QStringLiteral("Hyprland"); }
    QString configLine(const HotkeyCombo& combo) const override;
    Status query(const HotkeyCombo& combo) override;
    Status add(const HotkeyCombo& combo) override { return query(combo); }
    Status remove() override { return {}; }

    // What Hyprland's reply to `j/binds` says of `combo` for `program`'s lookup.
    static Status statusOf(const QByteArray& binds, const HotkeyCombo& combo, const QString& program);

private:
    QString m_program;
    QString m_socketPath;
};
