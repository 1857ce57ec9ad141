#include "NubraCore/Service/DeviceIdentity.h"
#include "NubraCore/Service/TokenStore.h"
#include "TestSupport/DebugLogCapture.h"

#include <QRegularExpression>
#include <QTest>

namespace {

// A secret store that refuses every write, as one does without a running Secret Service.
class RefusingSecretStore final : public SecretStore {
public:
    bool write(const QString&, const QByteArray&) override { return false; }
    std::optional<QByteArray> read(const QString&) override { return std::nullopt; }
    bool remove(const QString&) override { return false; }
};

} // namespace

class CredentialsTest : public QObject {
    Q_OBJECT
private slots:
    void savingTwiceKeepsOneValue() {
        InMemorySecretStore secrets;
        InMemoryDefaults defaults;
        TokenStore store(secrets, defaults);
        store.save(u"device_token"_qs, u"first"_qs);
        store.save(u"device_token"_qs, u"second"_qs);
        QCOMPARE(secrets.size(), 1);
        QCOMPARE(secrets.read(u"token.device_token"_qs), std::optional<QByteArray>("second"));
        QCOMPARE(store.load(u"device_token"_qs), std::optional<QString>(u"second"_qs));
        QCOMPARE(store.load(u"refresh_token"_qs), std::nullopt);
    }

    void legacyEntryMovesIntoTheSecretStore() {
        InMemorySecretStore secrets;
        InMemoryDefaults defaults;
        defaults.setValue(u"token.refresh_token"_qs, u"old"_qs);
        TokenStore store(secrets, defaults);
        QCOMPARE(store.load(u"refresh_token"_qs), std::optional<QString>(u"old"_qs));
        QVERIFY(!defaults.contains(u"token.refresh_token"_qs));
        QCOMPARE(secrets.read(u"token.refresh_token"_qs), std::optional<QByteArray>("old"));
    }

    void saveRemovesTheLegacyEntryAndKeychainWins() {
        InMemorySecretStore secrets;
        InMemoryDefaults defaults;
        TokenStore store(secrets, defaults);
        defaults.setValue(u"token.device_token"_qs, u"legacy"_qs);
        secrets.write(u"token.device_token"_qs, "current");
        QCOMPARE(store.load(u"device_token"_qs), std::optional<QString>(u"current"_qs));
        QVERIFY(defaults.contains(u"token.device_token"_qs)); // a successful read leaves it
        store.save(u"device_token"_qs, u"new"_qs);
        QVERIFY(!defaults.contains(u"token.device_token"_qs));
    }

    // Without a working secret store the legacy entry is the only copy: it stays, whatever is saved.
    void aRefusedSaveKeepsTheLegacyEntry() {
        DebugLogCapture log;
        RefusingSecretStore secrets;
        InMemoryDefaults defaults;
        defaults.setValue(u"token.device_token"_qs, u"legacy-secret"_qs);
        TokenStore store(secrets, defaults);
        QCOMPARE(store.load(u"device_token"_qs), std::optional<QString>(u"legacy-secret"_qs));
        store.save(u"device_token"_qs, u"new-secret"_qs);
        QCOMPARE(defaults.string(u"token.device_token"_qs), std::optional<QString>(u"legacy-secret"_qs));
        QCOMPARE(store.load(u"device_token"_qs), std::optional<QString>(u"legacy-secret"_qs));
        QVERIFY(log.raw().contains("token.device_token"));
        QVERIFY(!log.raw().contains("-secret"));
    }

    void unreadableSecretFallsBackToLegacy() {
        InMemorySecretStore secrets;
        InMemoryDefaults defaults;
        TokenStore store(secrets, defaults);
        secrets.write(u"token.device_token"_qs, "\xff\xfe");
        QCOMPARE(store.load(u"device_token"_qs), std::nullopt);
        defaults.setValue(u"token.device_token"_qs, u"legacy"_qs);
        QCOMPARE(store.load(u"device_token"_qs), std::optional<QString>(u"legacy"_qs));
        QCOMPARE(secrets.read(u"token.device_token"_qs), std::optional<QByteArray>("legacy"));
    }

    void removeReportsWhatExisted() {
        InMemorySecretStore secrets;
        InMemoryDefaults defaults;
        TokenStore store(secrets, defaults);
        QVERIFY(!store.remove(u"device_token"_qs));
        defaults.setValue(u"token.device_token"_qs, u"legacy"_qs);
        QVERIFY(store.remove(u"device_token"_qs));
        QVERIFY(!defaults.contains(u"token.device_token"_qs));
        store.save(u"device_token"_qs, u"x"_qs);
        QVERIFY(store.remove(u"device_token"_qs));
        QCOMPARE(store.load(u"device_token"_qs), std::nullopt);
        QVERIFY(!store.remove(u"device_token"_qs));
    }

    void platformUUIDIsCanonicalAndNeverTheRawId() {
        const QString fromHex = DeviceIdentity::platformUUIDFrom("0123456789abcdef0123456789abcdef\n");
        const QRegularExpression canonical(
            u"^[0-9A-F]{8}-[0-9A-F]{4}-5[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$"_qs);
        QVERIFY2(canonical.match(fromHex).hasMatch(), qPrintable(fromHex));
        QVERIFY(!QString(fromHex).remove(u'-').contains(u"0123456789ABCDEF"_qs));
        // The same machine id written either way is the same device; another id is another device.
        QCOMPARE(DeviceIdentity::platformUUIDFrom("01234567-89AB-cdef-0123-456789abcdef"),
                 DeviceIdentity::platformUUIDFrom("0123456789abcdef0123456789abcdef"));
        QVERIFY(DeviceIdentity::platformUUIDFrom("5c8a1f2e-0b6d-4f7a-9e3c-1d2b3a4c5e6f") !=
                DeviceIdentity::platformUUIDFrom("0123456789abcdef0123456789abcdef"));
        QCOMPARE(DeviceIdentity::platformUUID(), DeviceIdentity::platformUUID());
        const QRegularExpression fallback(u"^fallback-[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}$"_qs);
        const QString first = DeviceIdentity::platformUUIDFrom(QByteArray());
        const QString second = DeviceIdentity::platformUUIDFrom("not an id");
        QVERIFY2(fallback.match(first).hasMatch(), qPrintable(first));
        QVERIFY2(fallback.match(second).hasMatch(), qPrintable(second));
        QVERIFY(first != second);
        QVERIFY(first != DeviceIdentity::platformUUIDFrom(QByteArray()));
    }
};

QTEST_APPLESS_MAIN(CredentialsTest)
#include "tst_credentials.moc"
