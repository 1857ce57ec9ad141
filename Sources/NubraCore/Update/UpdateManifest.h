#pragma once

#include "NubraCore/Service/DecodingError.h"

#include <QJsonObject>
#include <QString>

#include <optional>

// What the service says about the latest release (GET /v1/updates/latest, inside the envelope).
struct UpdateManifest {
    bool available = false;
    std::optional<QString> version; // with or without a leading "v"
    // Plain text, or the text of a JSON object mapping language codes to notes.
    std::optional<QString> notes;
    std::optional<QString> url;
    std::optional<QString> sha256; // hexadecimal, as sent
    // Base64 of the Ed25519 signature of the archive, which a user-local Linux installation requires.
    std::optional<QString> signature;
    // Base64 of the Ed25519 signature of "nubra-release <version> <sha256>", which binds the version to
    // the archive, so an old release cannot be announced as a new one.
    std::optional<QString> versionSignature;

    // "available" is required and must be a boolean; the other members may be missing or null but
    // must be strings when given. Unknown members are ignored.
    static DecodeResult<UpdateManifest> fromJson(const QJsonObject& object);

    // The notes for the current interface language: the member named after it, else "en", else the
    // notes as sent (which is also what plain-text notes give).
    std::optional<QString> localizedNotes() const;

    friend bool operator==(const UpdateManifest&, const UpdateManifest&) = default;
};
