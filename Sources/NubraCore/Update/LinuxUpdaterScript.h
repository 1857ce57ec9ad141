#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// What the install script of a user-local Linux installation needs to know. The installation is one
// folder (by default ~/.local/opt/Nubra) holding bin/nubra, bin/nubra-glossd, their libraries and
// resources; a release is a .tar.gz whose only top-level entry is the folder "Nubra/".
struct LinuxUpdate {
    QString archivePath;                   // the downloaded .tar.gz
    QString version;                       // shown in a comment only
    std::optional<QString> expectedSha256; // hexadecimal, required
    QString errPath;                       // where a failure's one-line reason goes
    QString installDir;                    // absolute, e.g. /home/u/.local/opt/Nubra
    qint64 pid = 0;                        // the running Nubra; the script waits for it to end
    QString publicKeyPem;                  // Ed25519 "BEGIN PUBLIC KEY" block built into Nubra
    QString signatureBase64;               // raw 64-byte Ed25519 signature over the archive bytes
    QStringList relaunchArguments;         // passed to the new bin/nubra
    int waitPolls = 300;                   // 0.4 s each before giving up on the old process
};

// Builds the one-shot install script for a user-local installation: it waits for the old process to
// go, checks the archive's SHA-256 and Ed25519 signature, unpacks it into a private folder next to
// the installation, swaps the folders with renames (rolling back on failure) and starts the new
// version. Every failure leaves the old version in place and its reason in the error note.
namespace LinuxUpdaterScript {

// The script text (lines joined by "\n", no final line feed), or nothing when the inputs are refused:
// a checksum that is absent or, once trimmed, not exactly 64 hexadecimal digits; a path or relaunch
// argument holding " ' ` $ \ or a control character such as a line break; an install folder that is
// not absolute or is the root; a key that is not one Ed25519 public key in a PEM block; a signature
// that is not the base64 text of 64 bytes; a process id below 1 or a negative number of polls.
std::optional<QString> build(const LinuxUpdate& update);

} // namespace LinuxUpdaterScript
