#pragma once

#include "NubraCore/Service/DecodingError.h"

#include <QByteArray>
#include <QJsonObject>

#include <concepts>

// The wrapper of the service's non-streaming answers: {"ok": <boolean>, "data": {...}}. Both members
// are required; the value of "ok" is carried but callers do not act on it.
struct APIEnvelope {
    bool ok = false;
    QJsonObject data;

    static DecodeResult<APIEnvelope> decode(const QByteArray& body);

    // Decodes the envelope and then its "data" with Payload::fromJson; errors inside the payload are
    // reported with their path from the top ("data.available").
    template <typename Payload>
    requires requires(const QJsonObject& object) {
        { Payload::fromJson(object) } -> std::same_as<DecodeResult<Payload>>;
    }
    static DecodeResult<Payload> decodePayload(const QByteArray& body) {
        const DecodeResult<APIEnvelope> envelope = decode(body);
        if (!envelope)
            return envelope.error();
        DecodeResult<Payload> payload = Payload::fromJson(envelope.value().data);
        if (!payload)
            return payload.error().within(QStringLiteral("data"));
        return payload;
    }
};
