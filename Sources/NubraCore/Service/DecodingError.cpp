#include "NubraCore/Service/DecodingError.h"

DecodingError DecodingError::invalidJson(QString parserMessage) {
    return {Kind::invalidJson, QString(), std::move(parserMessage)};
}

DecodingError DecodingError::missingKey(QString key) {
    return {Kind::missingKey, std::move(key), QString()};
}

DecodingError DecodingError::typeMismatch(QString key, QString expectedType) {
    return {Kind::typeMismatch, std::move(key), std::move(expectedType)};
}

DecodingError DecodingError::within(const QString& parentKey) const {
    DecodingError outer = *this;
    outer.path = path.isEmpty() ? parentKey : parentKey + u'.' + path;
    return outer;
}

QString DecodingError::description() const {
    const QString where = path.isEmpty() ? QStringLiteral("the top level") : u'"' + path + u'"';
    switch (kind) {
    case Kind::invalidJson:
        return QStringLiteral("The answer is not valid JSON: ") + detail;
    case Kind::missingKey:
        return QStringLiteral("The answer has no required member ") + where;
    case Kind::typeMismatch:
        return QStringLiteral("The answer has the wrong type at ") + where + QStringLiteral(": expected ") +
               detail;
    }
    return QString();
}
