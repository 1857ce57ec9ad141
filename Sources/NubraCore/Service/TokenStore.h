#pragma once

#include "NubraCore/Service/SecretStore.h"
#include "NubraCore/Support/Defaults.h"

#include <QString>

#include <optional>

// The names under which the two credentials are kept.
namespace TokenKey {
inline constexpr const char* deviceToken = "device_token";   // sent as the bearer credential
inline constexpr const char* refreshToken = "refresh_token"; // used only to renew the device token
} // namespace TokenKey

// Keeps the service credentials in the secret store, under service "app.nubra.tokens" and account
// "token." + key. Older versions kept them in the user defaults under the same name; such an entry is
// moved into the secret store when it is first read and removed on every save the secret store accepts
// and on every delete. A refused save leaves what was stored before.
class TokenStore {
public:
    static constexpr const char* service = "app.nubra.tokens";

    TokenStore(SecretStore& secrets, Defaults& defaults);

    static QString account(const QString& key);

    void save(const QString& key, const QString& value);
    std::optional<QString> load(const QString& key);
    // True when something was removed, from the secret store or the legacy entry.
    bool remove(const QString& key);

private:
    SecretStore& m_secrets;
    Defaults& m_defaults;
};
