#pragma once

#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Service/TokenStore.h"

#include <QString>

#include <functional>
#include <optional>

class QObject;

// Renews the device token with the stored refresh token. On success the new token is handed to the
// application (its current device token), saved, and the refresh token saved again unchanged; on any
// failure nothing is stored and the caller is told there is no new token.
class TokenRenewal {
public:
    using Renewed = std::function<void(const QString& deviceToken)>;

    TokenRenewal(GlossAPI api, TokenStore& tokens, Renewed renewed);

    // Runs the sequence once. `answer` gets the new token or nothing, unless `context` is destroyed first.
    void run(QObject* context, std::function<void(std::optional<QString>)> answer);

    // The same, in the shape a lookup asks for when the service refuses its token. The renewal object
    // must outlive the lookups it is given to.
    GlossAPI::TokenRenewal hook();

private:
    GlossAPI m_api;
    TokenStore& m_tokens;
    Renewed m_renewed;
};
