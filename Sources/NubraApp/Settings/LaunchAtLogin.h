#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// Starting Nubra when the user logs in, through an XDG autostart entry: app.nubra.Nubra.desktop in
// $XDG_CONFIG_HOME/autostart (~/.config/autostart by default). The entry is the only record, so the
// state is always read back from it. Every call touches the file system: keep them off the GUI thread.
class LaunchAtLogin {
public:
    static constexpr const char* entryFileName = "app.nubra.Nubra.desktop";

    // For the program at `program`, an absolute path; by default the one running.
    explicit LaunchAtLogin(QString program = defaultProgram());

    static QString defaultProgram();
    // $XDG_CONFIG_HOME/autostart (~/.config/autostart by default).
    static QString autostartDirectory();
    QString entryPath() const;

    // Whether the entry is there, not hidden or disabled, and starts this program.
    bool isEnabled() const;
    // Writes the entry (atomically) or removes it. Nothing on success, the reason otherwise.
    std::optional<QString> setEnabled(bool enabled) const;

    // The entry as written.
    QByteArray entryText() const;

private:
    QString m_program;
};
