#pragma once

#include "NubraCore/Service/DecodingError.h"

#include <QJsonObject>
#include <QString>

#include <cstdint>
#include <optional>

// The payload of a token renewal answer.
struct RefreshData {
    QString deviceToken;                   // "device_token", required
    std::optional<std::int64_t> expiresIn; // "expires_in", may be missing; the client does not use it

    static DecodeResult<RefreshData> fromJson(const QJsonObject& object);
};
