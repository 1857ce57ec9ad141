#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>

#include <optional>

// A store of secrets kept by the system on the user's behalf (the keychain, the Secret Service), one
// value per account under the store's own service name. Calls are synchronous; failures are reported
// only as "nothing read" or "nothing changed".
class SecretStore {
public:
    virtual ~SecretStore() = default;

    // Creates or replaces the value of `account`. False when the store refused.
    virtual bool write(const QString& account, const QByteArray& value) = 0;
    // The value of `account`, or nothing when there is none or the store cannot be read.
    virtual std::optional<QByteArray> read(const QString& account) = 0;
    // True only when a value existed and was removed.
    virtual bool remove(const QString& account) = 0;
};

// Secrets held in memory, for tests and headless tools.
class InMemorySecretStore final : public SecretStore {
public:
    bool write(const QString& account, const QByteArray& value) override;
    std::optional<QByteArray> read(const QString& account) override;
    bool remove(const QString& account) override;

    qsizetype size() const { return m_values.size(); }

private:
    QHash<QString, QByteArray> m_values;
};
