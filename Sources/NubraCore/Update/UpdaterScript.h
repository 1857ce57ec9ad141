#pragma once

#include <QString>

#include <optional>

// Builds the one-shot install script that runs after Nubra has quit: it waits for the old process to
// go, checks the archive's SHA-256 and the new bundle's signature, swaps the bundle in /Applications
// with a backup it restores on failure, and starts the new version.
namespace UpdaterScript {

// The script text (lines joined by "\n", no final line feed), or nothing when the inputs are refused:
// a checksum that is absent or, once trimmed, not exactly 64 hexadecimal digits; or a path holding a
// character that is special inside double quotes in bash (" ' ` $ \). The checksum is lower-cased;
// the version only appears in a comment and keeps just letters, digits, "-", "." and "_".
std::optional<QString> build(const QString& zipPath, const QString& version,
                             const std::optional<QString>& expectedSha256, const QString& errPath);

} // namespace UpdaterScript
