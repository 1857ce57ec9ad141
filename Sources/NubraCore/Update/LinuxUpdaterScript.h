#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// What the install script of a user-local Linux installation needs to know. The installation is one
// folder (by default ~/.local/opt/Nubra) holding bin/nubra, bin/nubra-glossd, their libraries and
// resources; a release is a .tar.gz whose only top-level entry is the folder "Nubra/".
struct LinuxUpdate {
    QString archivePath;                   // the downloaded .tar.gz
    QString version;                       // the release's, as announced; signed with its checksum
    QString currentVersion;                // the running version, which `version` must be newer than
    std::optional<QString> expectedSha256; // hexadecimal, required
    QString errPath;                       // where a failure's one-line reason goes
    QString installDir;                    // absolute, e.g. /home/u/.local/opt/Nubra
    qint64 pid = 0;                        // the running Nubra; the script waits for it to end
    QString publicKeyPem;                  // Ed25519 "BEGIN PUBLIC KEY" block built into Nubra
    QString signatureBase64;               // raw 64-byte Ed25519 signature over the archive bytes
    QString versionSignatureBase64;        // the same over LinuxUpdaterScript::releaseStatement()
    QStringList relaunchArguments;         // passed to the new bin/nubra
    int waitPolls = 300;                   // 0.4 s each before giving up on the old process
    int healthPolls = 120;                 // 0.5 s each for the new version to report that it is up
};

// Builds the one-shot install script for a user-local installation. Run as `bash SCRIPT --check`, it
// only checks the archive: its SHA-256, its Ed25519 signature and the signed statement that binds the
// announced version to that checksum, so no archive can pass for a newer release than it is. Run as
// `bash SCRIPT`, it checks the same, waits for the old process to go, unpacks the archive into a
// private folder next to the installation, swaps the folders with renames (rolling back on failure)
// and starts the new version with `--update-health FILE`; the old version is kept until the new one has
// created FILE, and put back if it ends or stays silent. Every failure leaves the old version in place
// and its reason in the error note; a failure after the old process has gone starts the old version
// again with `--update-failed NOTE`, so the user learns what happened.
namespace LinuxUpdaterScript {

// Why the builder refuses its inputs.
enum class Refusal {
    checksum,       // absent or, once trimmed, not exactly 64 hexadecimal digits
    signature,      // a signature that is not the base64 text of 64 bytes, or no version signature
    version,        // not a plain version (digits, letters, ".", "-", "+"), or not newer than the running one
    unsafePath,     // a path or argument holding " ' ` $ \ or a control character; an install folder
                    // that is not absolute or is the root
    key,            // not one Ed25519 public key in a PEM block
    processOrPolls, // a process id below 1 or a negative number of polls
};

// What the release key signs besides the archive: "nubra-release <version> <sha256>", the checksum
// in lower case.
QByteArray releaseStatement(const QString& version, const QString& sha256);

// Why `update` is refused, or nothing when a script can be built for it.
std::optional<Refusal> refusal(const LinuxUpdate& update);

// The script text (lines joined by "\n", no final line feed), or nothing when refusal() names a reason.
std::optional<QString> build(const LinuxUpdate& update);

} // namespace LinuxUpdaterScript
