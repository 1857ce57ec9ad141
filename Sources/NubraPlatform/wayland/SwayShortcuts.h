#pragma once

#include "NubraPlatform/DesktopShortcuts.h"
#include "NubraPlatform/wayland/DesktopShortcutKeys.h"

#include <QList>

// Nubra's lookup as a `bindsym` line of sway's configuration, which the user adds: sway has no way to
// keep a binding added from outside. Whether it is there, and what else the combination runs, comes
// from the configuration sway has loaded (IPC get_config).
class SwayShortcuts final : public BlockingShortcuts {
public:
    struct Binding {
        DesktopShortcutKeys keys;
        QString command;
    };

    SwayShortcuts(QString program, QString socketPath);

    Setup setup() const override { return Setup::configLine; }
    QString desktopName() const override { return QStringLiteral("sway"); }
    QString configLine(const HotkeyCombo& combo) const override;
    Status query(const HotkeyCombo& combo) override;
    Status add(const HotkeyCombo& combo) override { return query(combo); }
    Status remove() override { return {}; }

    // The default mode's key bindings in a configuration's text, variables replaced.
    static QList<Binding> bindings(const QString& config);
    // What a set of bindings says of `combo` for `program`'s lookup.
    static Status statusOf(const QList<Binding>& bindings, const HotkeyCombo& combo, const QString& program);

private:
    QString m_program;
    QString m_socketPath;
};
