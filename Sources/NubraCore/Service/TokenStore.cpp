#include "NubraCore/Service/TokenStore.h"

#include "NubraCore/Support/DebugLog.h"

#include <QStringDecoder>

TokenStore::TokenStore(SecretStore& secrets, Defaults& defaults) : m_secrets(secrets), m_defaults(defaults) {}

QString TokenStore::account(const QString& key) {
    return QStringLiteral("token.") + key;
}

void TokenStore::save(const QString& key, const QString& value) {
    const QString name = account(key);
    if (!m_secrets.write(name, value.toUtf8())) {
        // The legacy entry is then the only copy there is.
        nbDebug(QStringLiteral("tokens: the secret store refused to keep ") + name);
        return;
    }
    m_defaults.remove(name);
}

std::optional<QString> TokenStore::load(const QString& key) {
    const QString name = account(key);
    if (const auto stored = m_secrets.read(name)) {
        QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
        QString text = utf8.decode(*stored);
        if (!utf8.hasError())
            return text;
    }
    const auto legacy = m_defaults.string(name);
    if (!legacy)
        return std::nullopt;
    save(key, *legacy);
    return legacy;
}

bool TokenStore::remove(const QString& key) {
    const QString name = account(key);
    const bool removedSecret = m_secrets.remove(name);
    const bool hadLegacy = m_defaults.contains(name);
    m_defaults.remove(name);
    return removedSecret || hadLegacy;
}
