#include "NubraCore/Service/APIEnvelope.h"

#include <QJsonDocument>
#include <QJsonParseError>

DecodeResult<APIEnvelope> APIEnvelope::decode(const QByteArray& body) {
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return DecodingError::invalidJson(parseError.errorString() + QStringLiteral(" at offset ") +
                                          QString::number(parseError.offset));
    if (!document.isObject())
        return DecodingError::typeMismatch(QString(), QStringLiteral("an object"));

    const QJsonObject root = document.object();
    if (!root.contains(u"ok"))
        return DecodingError::missingKey(QStringLiteral("ok"));
    if (!root.value(u"ok").isBool())
        return DecodingError::typeMismatch(QStringLiteral("ok"), QStringLiteral("a boolean"));
    if (!root.contains(u"data"))
        return DecodingError::missingKey(QStringLiteral("data"));
    if (!root.value(u"data").isObject())
        return DecodingError::typeMismatch(QStringLiteral("data"), QStringLiteral("an object"));

    return APIEnvelope{root.value(u"ok").toBool(), root.value(u"data").toObject()};
}
