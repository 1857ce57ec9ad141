#pragma once

#include <QString>

// Where the running Nubra was installed from, which decides whether it may replace itself.
struct Installation {
    enum class Kind {
        // A user-local folder "…/Nubra" holding bin/nubra and bin/nubra-glossd, unpacked from a
        // release archive (usually ~/.local/opt/Nubra): it updates itself.
        bundle,
        // Under /usr, owned by the package manager: updated with it, never replaced by Nubra.
        packageManaged,
        // Anything else, such as a build folder: left alone.
        other,
    };

    Kind kind = Kind::other;
    QString folder; // bundle: the absolute, symlink-free path of the "Nubra" folder; empty otherwise

    // The installation the program at `executablePath` belongs to (symbolic links resolved).
    static Installation of(const QString& executablePath);
    // The installation of the running program.
    static Installation current();

    friend bool operator==(const Installation&, const Installation&) = default;
};
