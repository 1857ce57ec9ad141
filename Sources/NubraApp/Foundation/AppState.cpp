#include "NubraApp/Foundation/AppState.h"

#include "NubraCore/History/HistoryFile.h"
#include "NubraCore/Service/DeviceIdentity.h"
#include "NubraCore/Service/TokenStore.h"
#include "NubraCore/Support/DebugLog.h"

#include <QCoreApplication>
#include <QPointer>

AppState::AppState(Defaults& defaults, SecretStore& secrets, const QUrl& baseURL, const QString& historyPath,
                   QObject* parent)
    : QObject(parent), m_defaults(defaults), m_secrets(secrets), m_settings(defaults),
      m_api(baseURL, nubraDirectSession()), m_historyPath(historyPath),
      m_deviceId(DeviceIdentity::platformUUID()) {
    Q_ASSERT(baseURL.isValid());
    m_settings.loadPersisted();
    writeStartupLine(m_api.baseURL().toString());
}

AppState::~AppState() {
    // The secret store may need the main thread to finish the read, so keep it turning meanwhile.
    while (!m_credentialReader.waitForDone(10))
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
}

HistoryStore& AppState::history() {
    if (!m_history) {
        m_history = HistoryFile::openOrMemory(m_historyPath);
        if (!m_history)
            qFatal("Nubra cannot open even an in-memory history database");
    }
    return *m_history;
}

void AppState::setDeviceToken(const QString& token) {
    if (token == m_deviceToken)
        return;
    m_deviceToken = token;
    emit deviceTokenChanged();
}

void AppState::whenCredentialRead(QObject* context, std::function<void()> then) {
    if (m_credentialReadDone)
        return then();
    connect(this, &AppState::credentialRead, context, std::move(then), Qt::SingleShotConnection);
    readCredential();
}

void AppState::readCredential() {
    if (m_credentialReadStarted)
        return;
    m_credentialReadStarted = true;
    // Older versions kept the credential in the defaults; the background read sees a copy of that one
    // entry, and if TokenStore moves it into the keychain, the original is removed here afterwards.
    const QString legacyKey = TokenStore::account(QString::fromLatin1(TokenKey::deviceToken));
    const std::optional<QString> legacy = m_defaults.string(legacyKey);
    QPointer<AppState> self(this);
    m_credentialReader.start([self, &secrets = m_secrets, legacyKey, legacy]() {
        InMemoryDefaults snapshot;
        if (legacy)
            snapshot.setValue(legacyKey, *legacy);
        const QString token = TokenStore(secrets, snapshot)
                                  .load(QString::fromLatin1(TokenKey::deviceToken))
                                  .value_or(QString());
        const bool moved = legacy && !snapshot.contains(legacyKey);
        QMetaObject::invokeMethod(
            qApp,
            [self, token, moved, legacyKey]() {
                if (!self)
                    return;
                if (moved)
                    self->m_defaults.remove(legacyKey);
                // A token renewed meanwhile is newer than what was stored.
                if (self->m_deviceToken.isEmpty())
                    self->setDeviceToken(token);
                self->m_credentialReadDone = true;
                emit self->credentialRead();
            },
            Qt::QueuedConnection);
    });
}

void AppState::writeStartupLine(const QString& baseUrl) {
    // Unlike nbDebug this line never creates the log.
    DebugLog::appendUnstamped(QStringLiteral("AppState init: api.baseURL=") + baseUrl);
}

AppStateHolder& AppStateHolder::shared() {
    static AppStateHolder holder;
    return holder;
}

AppState& AppStateHolder::state() {
    Q_ASSERT(m_state);
    return *m_state;
}

void AppStateHolder::install(AppState* state) {
    Q_ASSERT(!m_state || !state);
    m_state = state;
}
