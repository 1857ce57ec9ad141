#pragma once

#include <QString>

// What this build was made as: values chosen when the build is configured. They live in one small
// generated source, so building another release version or with another signing key recompiles that
// file alone.
namespace BuildInfo {

// The release version, e.g. "1.2.0".
QString version();

// The Ed25519 public key ("BEGIN PUBLIC KEY" PEM block) that release archives must be signed with
// before this build installs them; empty when the build was configured without one, and then it
// installs no update.
QString updatePublicKeyPem();

} // namespace BuildInfo
