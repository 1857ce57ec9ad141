#pragma once

#include "NubraCore/Service/SecretStore.h"

#include <QString>

// Secrets in the system's keychain through QtKeychain: the Secret Service on Linux (gnome-keyring,
// KWallet), the login keychain on macOS. Items are generic passwords of one service name, keyed by
// account. Each call waits for its job in a local event loop, so it is synchronous for the caller.
// Never falls back to storing secrets in plain text.
class KeychainSecretStore final : public SecretStore {
public:
    explicit KeychainSecretStore(QString service);

    bool write(const QString& account, const QByteArray& value) override;
    std::optional<QByteArray> read(const QString& account) override;
    bool remove(const QString& account) override;

private:
    QString m_service;
};
