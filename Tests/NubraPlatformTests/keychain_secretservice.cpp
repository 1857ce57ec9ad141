#include "NubraCore/Service/TokenStore.h"
#include "NubraPlatform/keychain/KeychainSecretStore.h"
#include "TestSupport/DebugLogCapture.h"

#include <QTest>

// The token store over the real Secret Service (run by run_in_keyring.sh).
class KeychainTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() {
        if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
            QSKIP("no D-Bus session bus: run through run_in_keyring.sh");
        KeychainSecretStore probe(QStringLiteral("app.nubra.tests.probe"));
        if (!probe.write(QStringLiteral("probe"), "x"))
            QSKIP("the Secret Service refused to store an item");
        probe.remove(QStringLiteral("probe"));
    }

    void tokensRoundTrip() {
        DebugLogCapture log;
        KeychainSecretStore secrets(QString::fromLatin1(TokenStore::service));
        InMemoryDefaults defaults;
        TokenStore store(secrets, defaults);

        QVERIFY(!store.remove(u"device_token"_qs));
        store.save(u"device_token"_qs, u"first-secret"_qs);
        store.save(u"device_token"_qs, u"second-secret \u00e9"_qs);
        QCOMPARE(store.load(u"device_token"_qs), std::optional<QString>(u"second-secret \u00e9"_qs));
        QCOMPARE(secrets.read(u"token.device_token"_qs), std::optional<QByteArray>("second-secret \xc3\xa9"));

        QVERIFY(store.remove(u"device_token"_qs));
        QCOMPARE(store.load(u"device_token"_qs), std::nullopt);
        QVERIFY(!store.remove(u"device_token"_qs));
        QVERIFY(!log.raw().contains("secret"));
    }
};

QTEST_GUILESS_MAIN(KeychainTest)
#include "keychain_secretservice.moc"
