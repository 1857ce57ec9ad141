#pragma once

#include <QString>

#include <mutex>
#include <optional>
#include <set>
#include <variant>

// The credentials the service accepts, read from the --tokens file:
//   {"device_tokens": ["..."], "refresh_tokens": ["..."]}
// A refresh token is exchanged for a freshly issued device token, valid until the service stops.
class TokenRegistry {
public:
    static std::variant<TokenRegistry, QString> load(const QString& path);

    TokenRegistry(std::set<QString> deviceTokens, std::set<QString> refreshTokens);
    TokenRegistry(TokenRegistry&& other) noexcept;

    bool acceptsDeviceToken(const QString& token) const;
    // A new device token for a known refresh token; nothing for an unknown one.
    std::optional<QString> exchange(const QString& refreshToken);

private:
    mutable std::mutex m_mutex;
    std::set<QString> m_deviceTokens;
    std::set<QString> m_refreshTokens;
};
