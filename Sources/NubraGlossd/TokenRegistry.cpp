#include "NubraGlossd/TokenRegistry.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>

namespace {

std::optional<std::set<QString>> stringSet(const QJsonValue& value) {
    if (!value.isArray())
        return std::nullopt;
    std::set<QString> strings;
    for (const QJsonValue& item : value.toArray()) {
        if (!item.isString() || item.toString().isEmpty())
            return std::nullopt;
        strings.insert(item.toString());
    }
    return strings;
}

} // namespace

std::variant<TokenRegistry, QString> TokenRegistry::load(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("cannot read the tokens file %1: %2").arg(path, file.errorString());
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll());
    if (!document.isObject())
        return QStringLiteral("the tokens file %1 is not a JSON object").arg(path);
    const auto device = stringSet(document.object().value(u"device_tokens"));
    const auto refresh = stringSet(document.object().value(u"refresh_tokens"));
    if (!device || !refresh)
        return QStringLiteral("the tokens file %1 needs \"device_tokens\" and \"refresh_tokens\", "
                              "each an array of non-empty strings")
            .arg(path);
    return TokenRegistry(*device, *refresh);
}

TokenRegistry::TokenRegistry(std::set<QString> deviceTokens, std::set<QString> refreshTokens)
    : m_deviceTokens(std::move(deviceTokens)), m_refreshTokens(std::move(refreshTokens)) {}

TokenRegistry::TokenRegistry(TokenRegistry&& other) noexcept
    : m_deviceTokens(std::move(other.m_deviceTokens)), m_refreshTokens(std::move(other.m_refreshTokens)) {}

bool TokenRegistry::acceptsDeviceToken(const QString& token) const {
    std::lock_guard lock(m_mutex);
    return !token.isEmpty() && m_deviceTokens.count(token) != 0;
}

std::optional<QString> TokenRegistry::exchange(const QString& refreshToken) {
    std::lock_guard lock(m_mutex);
    if (m_refreshTokens.count(refreshToken) == 0)
        return std::nullopt;
    QString token = QStringLiteral("dt_");
    for (int i = 0; i < 4; ++i)
        token += QString::number(QRandomGenerator::system()->generate64(), 16).rightJustified(16, u'0');
    m_deviceTokens.insert(token);
    return token;
}
