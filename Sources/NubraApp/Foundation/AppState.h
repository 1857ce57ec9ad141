#pragma once

#include "NubraCore/History/HistoryStore.h"
#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Settings/AppSettings.h"

#include <QObject>
#include <QString>
#include <QThreadPool>
#include <QUrl>

#include <functional>
#include <memory>

class Defaults;
class SecretStore;

// The one object every part of the application reads and writes: the user's settings (with a change
// signal per setting), the gloss client, the history store and the service credential. Main thread only.
class AppState : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString deviceToken READ deviceToken WRITE setDeviceToken NOTIFY deviceTokenChanged)

public:
    // Builds the state in its fixed order: built-in values, the client for `baseURL`, the stored
    // settings, then the start-up line of the debug log. The history at `historyPath` (in memory when it
    // cannot be opened) is opened at its first use, so an idle Nubra keeps SQLite out of memory. The
    // credential in `secrets` is read when it is first asked for (see readCredential()), which keeps
    // the keyring's libraries out of an idle Nubra too. `secrets` must outlive the state.
    AppState(Defaults& defaults, SecretStore& secrets, const QUrl& baseURL, const QString& historyPath,
             QObject* parent = nullptr);
    ~AppState() override;

    AppSettings& settings() { return m_settings; }
    const AppSettings& settings() const { return m_settings; }
    const GlossAPI& api() const { return m_api; }
    HistoryStore& history();
    Defaults& defaults() { return m_defaults; }
    // What identifies this machine to the service (DeviceIdentity), read once.
    const QString& deviceId() const { return m_deviceId; }

    const QString& deviceToken() const { return m_deviceToken; }
    void setDeviceToken(const QString& token);

    // Starts reading the stored credential off the main thread, since a keyring can take seconds to
    // answer; does nothing once started. The capture calls it as soon as a selection may be coming, so
    // the credential is there before the lookup. The destructor waits for the read.
    void readCredential();
    // Runs `then` once the credential has been read (at once if it has; else after the read, which this
    // starts), unless `context` is gone by then.
    void whenCredentialRead(QObject* context, std::function<void()> then);

    // Writes the nine stored settings.
    void persist() { m_settings.persist(); }

    // Appends "AppState init: api.baseURL=<url>" to the debug log, only if the log already exists.
    static void writeStartupLine(const QString& baseUrl);

signals:
    void deviceTokenChanged();
    void credentialRead();

private:
    Defaults& m_defaults;
    SecretStore& m_secrets;
    AppSettings m_settings;
    GlossAPI m_api;
    QString m_historyPath;
    std::unique_ptr<HistoryStore> m_history;
    QString m_deviceToken;
    QString m_deviceId;
    QThreadPool m_credentialReader;
    bool m_credentialReadStarted = false;
    bool m_credentialReadDone = false;
};

// Where the application keeps its one state. The application installs the state it owns at start-up
// and removes it before tearing it down; every reader in between reaches the same instance.
class AppStateHolder {
public:
    static AppStateHolder& shared();

    AppState& state();
    bool hasState() const { return m_state != nullptr; }
    void install(AppState* state);

private:
    AppState* m_state = nullptr;
};
