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
        const AppSettings& s = state.settings();
        QCOMPARE(s.style(), GlossStyle::plain);
        QCOMPARE(s.length(), GlossLength::medium);
        QCOMPARE(s.contextRadius(), 200);
        QCOMPARE(s.modelTier(), ModelTier::fast);
        QCOMPARE(s.outputLang(), u"auto"_s);
        QCOMPARE(s.triggerMode(), TriggerMode::onSelection);
        QVERIFY(s.autoHide() && s.recordHistory() && !s.paused());
        QCOMPARE(s.historyLimit(), 100);
        QVERIFY(s.excludedApps().contains(u"com.agilebits.onepassword"_s));
        QCOMPARE(state.api().baseURL(), QUrl(u"https://gloss.example"_s));
        // The history file is made at the history's first use, not at start.
        QVERIFY(!QFileInfo::exists(dir.filePath(u"history.sqlite3"_s)));
        state.history();
        QVERIFY(QFileInfo::exists(dir.filePath(u"history.sqlite3"_s)));
        QVERIFY(!state.deviceId().isEmpty());

        // No credential anywhere: the read ends with the empty token and no change.
        QSignalSpy token(&state, &AppState::deviceTokenChanged);
        QVERIFY(!token.wait(200));
        QCOMPARE(state.deviceToken(), QString());
        // Nothing was logged, so no log file exists and the start-up line was not written.
        QVERIFY(!QFileInfo::exists(log.path()));
    }

    void storedSettingsAndCredentialArrive() {
        InMemoryDefaults defaults;
        defaults.setValue(u"style"_s, u"coding"_s);
        defaults.setValue(u"contextRadius"_s, -4);
        InMemorySecretStore secrets;
        secrets.write(TokenStore::account(QString::fromLatin1(TokenKey::deviceToken)), "secret-token");
        AppState state(defaults, secrets, QUrl(u"https://gloss.example"_s), u":memory:"_s);
        QCOMPARE(state.settings().style(), GlossStyle::coding);
        QCOMPARE(state.settings().contextRadius(), 200);

        QSignalSpy token(&state, &AppState::deviceTokenChanged);
        QVERIFY(token.wait(5000));
        QCOMPARE(state.deviceToken(), u"secret-token"_s);
    }

    void legacyCredentialLeavesTheDefaults() {
        InMemoryDefaults defaults;
        const QString legacyKey = TokenStore::account(QString::fromLatin1(TokenKey::deviceToken));
        defaults.setValue(legacyKey, u"old-token"_s);
        InMemorySecretStore secrets;
        AppState state(defaults, secrets, QUrl(u"https://gloss.example"_s), u":memory:"_s);
        QSignalSpy token(&state, &AppState::deviceTokenChanged);
        QVERIFY(token.wait(5000));
        QCOMPARE(state.deviceToken(), u"old-token"_s);
        QVERIFY(!defaults.contains(legacyKey));
        QCOMPARE(secrets.read(legacyKey), std::optional<QByteArray>("old-token"));
    }

    void unopenableHistoryStillRecords() {
        InMemoryDefaults defaults;
        InMemorySecretStore secrets;
        QTemporaryDir dir;
        AppState state(defaults, secrets, QUrl(u"https://gloss.example"_s),
                       dir.filePath(u"missing/folder/history.sqlite3"_s));
        HistoryRecord record;
        record.createdAt = QDateTime::currentDateTimeUtc();
        record.selectedText = u"kept for the session"_s;
        state.history().insert(record);
        QCOMPARE(state.history().count(), 1);
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
