#include "NubraApp/Foundation/AppState.h"
#include "NubraCore/Service/SecretStore.h"
#include "NubraCore/Service/TokenStore.h"
#include "NubraCore/Support/Defaults.h"
#include "TestSupport/DebugLogCapture.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

// The settings, the credential store and the history file each have their own tests in NubraCoreTests;
// here, how the state puts them together.
class AppStateTest : public QObject {
    Q_OBJECT
private slots:
    void freshInstallation() {
        DebugLogCapture log;
        InMemoryDefaults defaults;
        InMemorySecretStore secrets;
        QTemporaryDir dir;
        AppState state(defaults, secrets, QUrl(u"https://gloss.example"_s),
                       dir.filePath(u"history.sqlite3"_s));
        QCOMPARE(state.api().baseURL(), QUrl(u"https://gloss.example"_s));
        // The history file is made at the history's first use, not at start.
        QVERIFY(!QFileInfo::exists(dir.filePath(u"history.sqlite3"_s)));
        state.history();
        QVERIFY(QFileInfo::exists(dir.filePath(u"history.sqlite3"_s)));
        QVERIFY(!state.deviceId().isEmpty());

        // No credential anywhere: the read ends with the empty token and no change.
        QSignalSpy token(&state, &AppState::deviceTokenChanged);
        bool read = false;
        state.whenCredentialRead(&state, [&read] { read = true; });
        QTRY_VERIFY(read);
        QCOMPARE(token.count(), 0);
        QCOMPARE(state.deviceToken(), QString());
        // Nothing was logged, so no log file exists and the start-up line was not written.
        QVERIFY(!QFileInfo::exists(log.path()));
    }

    // The keyring is not touched until the credential is wanted; whoever waits for it then sees it.
    void storedCredentialIsReadWhenFirstWanted() {
        InMemoryDefaults defaults;
        InMemorySecretStore secrets;
        AppState state(defaults, secrets, QUrl(u"https://gloss.example"_s), u":memory:"_s);
        secrets.write(TokenStore::account(QString::fromLatin1(TokenKey::deviceToken)), "secret-token");
        QStringList seen;
        for (int waiter = 0; waiter < 2; ++waiter)
            state.whenCredentialRead(&state, [&] { seen << state.deviceToken(); });
        QTRY_COMPARE(seen, QStringList(2, u"secret-token"_s));
        state.readCredential(); // read once only: a later change in the keyring is not taken
        secrets.write(TokenStore::account(QString::fromLatin1(TokenKey::deviceToken)), "other");
        state.whenCredentialRead(&state, [&] { seen << state.deviceToken(); });
        QCOMPARE(seen.size(), 3);
        QCOMPARE(seen.last(), u"secret-token"_s);
    }

    void startupLineOnlyIntoAnExistingLog() {
        DebugLogCapture log;
        AppState::writeStartupLine(u"https://gloss.example"_s);
        QVERIFY(!QFileInfo::exists(log.path()));

        QFile file(log.path());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("earlier\n");
        file.close();
        InMemoryDefaults defaults;
        InMemorySecretStore secrets;
        AppState state(defaults, secrets, QUrl(u"https://gloss.example"_s), u":memory:"_s);
        QCOMPARE(log.raw(), QByteArray("earlier\nAppState init: api.baseURL=https://gloss.example\n"));
    }
};

QTEST_GUILESS_MAIN(AppStateTest)
#include "tst_appstate.moc"
