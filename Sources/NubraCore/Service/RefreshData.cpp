#include "NubraCore/Service/RefreshData.h"

#include "NubraCore/Support/JsonNumber.h"

DecodeResult<RefreshData> RefreshData::fromJson(const QJsonObject& object) {
    if (!object.contains(u"device_token"))
        return DecodingError::missingKey(QStringLiteral("device_token"));
    const QJsonValue token = object.value(u"device_token");
    if (!token.isString())
        return DecodingError::typeMismatch(QStringLiteral("device_token"), QStringLiteral("a string"));

    RefreshData data{token.toString(), std::nullopt};
    const QJsonValue expiresIn = object.value(u"expires_in");
    if (!expiresIn.isUndefined() && !expiresIn.isNull()) {
        data.expiresIn = jsonWholeNumber(expiresIn);
        if (!data.expiresIn)
            return DecodingError::typeMismatch(QStringLiteral("expires_in"), QStringLiteral("an integer"));
    }
    return data;
}
