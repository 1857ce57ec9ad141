#include "NubraCore/Service/GlossAPIError.h"

#include "NubraCore/Vocabulary/L10n.h"

GlossAPIError GlossAPIError::invalidResponse(std::int64_t status) {
    GlossAPIError error;
    error.kind = Kind::invalidResponse;
    error.status = status;
    return error;
}

GlossAPIError GlossAPIError::rateLimited(std::int64_t retryAfter) {
    GlossAPIError error;
    error.kind = Kind::rateLimited;
    error.retryAfter = retryAfter;
    return error;
}

GlossAPIError GlossAPIError::upstream(QString code, QString message) {
    GlossAPIError error;
    error.kind = Kind::upstream;
    error.code = std::move(code);
    error.message = std::move(message);
    return error;
}

GlossAPIError GlossAPIError::network(QString underlying) {
    GlossAPIError error;
    error.kind = Kind::network;
    error.underlying = std::move(underlying);
    return error;
}

QString GlossAPIError::errorDescription() const {
    switch (kind) {
    case Kind::invalidResponse:
        return L10n::t(QStringLiteral("Server returned "), QStringLiteral("服务端返回 ")) +
               QString::number(status);
    case Kind::rateLimited: {
        const QString seconds = QString::number(retryAfter);
        return L10n::t(QStringLiteral("Too fast — try again in ") + seconds + QStringLiteral(" seconds."),
                       QStringLiteral("请求过于频繁，请 ") + seconds + QStringLiteral(" 秒后再试"));
    }
    case Kind::upstream:
        return message;
    case Kind::network:
        return L10n::t(QStringLiteral("Network error: "), QStringLiteral("网络错误：")) + underlying;
    }
    return {};
}
