#pragma once

#include <QMetaType>
#include <QString>

#include <cstdint>

// A failure of the gloss service client. Only the payload of its own case is meaningful; the
// description is built when it is read, so it follows the current interface language.
struct GlossAPIError {
    enum class Kind { invalidResponse, rateLimited, upstream, network };

    Kind kind = Kind::network;
    std::int64_t status = 0;     // invalidResponse
    std::int64_t retryAfter = 0; // rateLimited, in seconds
    QString code;                // upstream
    QString message;             // upstream
    QString underlying;          // network

    static GlossAPIError invalidResponse(std::int64_t status);
    static GlossAPIError rateLimited(std::int64_t retryAfter);
    static GlossAPIError upstream(QString code, QString message);
    static GlossAPIError network(QString underlying);

    QString errorDescription() const;

    friend bool operator==(const GlossAPIError&, const GlossAPIError&) = default;
};

Q_DECLARE_METATYPE(GlossAPIError)
