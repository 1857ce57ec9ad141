#include "NubraGlossd/Envelope.h"

#include <QJsonDocument>

namespace Envelope {

namespace {

std::string compact(const QJsonObject& object) {
    return QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString();
}

} // namespace

std::string success(const QJsonObject& data) {
    return compact({{QStringLiteral("ok"), true}, {QStringLiteral("data"), data}});
}

std::string failure(const QString& code, const QString& message) {
    const QJsonObject error{{QStringLiteral("code"), code}, {QStringLiteral("message"), message}};
    return compact({{QStringLiteral("ok"), false}, {QStringLiteral("error"), error}});
}

} // namespace Envelope
