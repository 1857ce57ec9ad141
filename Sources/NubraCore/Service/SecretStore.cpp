#include "NubraCore/Service/SecretStore.h"

bool InMemorySecretStore::write(const QString& account, const QByteArray& value) {
    m_values.insert(account, value);
    return true;
}

std::optional<QByteArray> InMemorySecretStore::read(const QString& account) {
    const auto found = m_values.constFind(account);
    if (found == m_values.cend())
        return std::nullopt;
    return *found;
}

bool InMemorySecretStore::remove(const QString& account) {
    return m_values.remove(account);
}
