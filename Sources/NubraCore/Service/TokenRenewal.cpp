#include "NubraCore/Service/TokenRenewal.h"

#include "NubraCore/Service/DeviceIdentity.h"
#include "NubraCore/Support/DebugLog.h"

TokenRenewal::TokenRenewal(GlossAPI api, TokenStore& tokens, Renewed renewed)
    : m_api(std::move(api)), m_tokens(tokens), m_renewed(std::move(renewed)) {}

void TokenRenewal::run(QObject* context, std::function<void(std::optional<QString>)> answer) {
    const QString refreshKey = QString::fromLatin1(TokenKey::refreshToken);
    const auto refreshToken = m_tokens.load(refreshKey);
    if (!refreshToken) {
        nbDebug(QStringLiteral("token renewal: no refresh token"));
        answer(std::nullopt);
        return;
    }
    m_api.refreshAccessToken(*refreshToken, DeviceIdentity::platformUUID(), context,
                             [this, refreshKey, refreshToken = *refreshToken,
                              answer = std::move(answer)](ServiceCallResult<QString> result) {
                                 if (const auto* error = std::get_if<ServiceCallError>(&result)) {
                                     nbDebug(QStringLiteral("token renewal failed: ") + describe(*error));
                                     answer(std::nullopt);
                                     return;
                                 }
                                 const QString& deviceToken = std::get<QString>(result);
                                 if (m_renewed)
                                     m_renewed(deviceToken);
                                 m_tokens.save(QString::fromLatin1(TokenKey::deviceToken), deviceToken);
                                 m_tokens.save(refreshKey, refreshToken);
                                 nbDebug(QStringLiteral("token renewal: device token renewed"));
                                 answer(deviceToken);
                             });
}

GlossAPI::TokenRenewal TokenRenewal::hook() {
    return [this](QObject* context, std::function<void(std::optional<QString>)> answer) {
        run(context, std::move(answer));
    };
}
