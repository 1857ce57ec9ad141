// What both install-script builders accept into a script (ScriptInputs), how the macOS builder pastes
// it, and what the Linux builder refuses; tst_linuxupdaterscript runs the Linux script for real.
#include "NubraCore/Update/LinuxUpdaterScript.h"
#include "NubraCore/Update/ScriptInputs.h"
#include "NubraCore/Update/UpdaterScript.h"

#include <QStringList>
#include <QTest>

namespace {

const QString validSha = u"0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef"_qs;
const QString zipPath = u"/tmp/Nubra-1.4.0-6F1C.app.zip"_qs;
const QString errPath = u"/tmp/nubra-update-91AB.err"_qs;

std::optional<QString> scriptFor(const QString& version, const std::optional<QString>& sha = validSha,
                                 const QString& zip = zipPath, const QString& err = errPath) {
    return UpdaterScript::build(zip, version, sha, err);
}

LinuxUpdate validLinuxUpdate() {
    LinuxUpdate update;
    update.archivePath = u"/tmp/Nubra-1.4.0-6F1C.tar.gz"_qs;
    update.version = u"1.4.0"_qs;
    update.currentVersion = u"1.3.0"_qs;
    update.expectedSha256 = validSha;
    update.errPath = errPath;
    update.installDir = u"/home/u/.local/opt/Nubra"_qs;
    update.pid = 4242;
    update.publicKeyPem = u"-----BEGIN PUBLIC KEY-----\n"
                          u"MCowBQYDK2VwAyEAxro11mvXXumm3+vr6RZ9NV/HhJS3WKbTqMmq+ZzARmI=\n"
                          u"-----END PUBLIC KEY-----\n"_qs;
    update.signatureBase64 = QString::fromLatin1(QByteArray(64, '\x5a').toBase64());
    update.versionSignatureBase64 = update.signatureBase64;
    return update;
}

QString line(const QString& script, int number) {
    return script.split(u'\n').value(number - 1);
}

} // namespace

class UpdaterScriptTest : public QObject {
    Q_OBJECT
private slots:
    void checksums_data() {
        QTest::addColumn<std::optional<QString>>("sha");
        QTest::addColumn<std::optional<QString>>("normalized");
        const std::optional<QString> refused;
        const auto sha = [](const QString& text) { return std::optional<QString>(text); };
        QTest::newRow("as is") << sha(validSha) << sha(validSha);
        QTest::newRow("upper case, blanks and breaks around")
            << sha(u"\n\t "_qs + validSha.toUpper() + u" \r\n"_qs) << sha(validSha);
        QTest::newRow("absent") << refused << refused;
        QTest::newRow("blank") << sha(u" \n"_qs) << refused;
        QTest::newRow("63 digits") << sha(validSha.first(63)) << refused;
        QTest::newRow("letter g") << sha(validSha.first(63) + u'g') << refused;
        QTest::newRow("inner blank") << sha(validSha.first(32) + u' ' + validSha.sliced(33)) << refused;
        QTest::newRow("full-width digit") << sha(u"０"_qs + validSha.sliced(1)) << refused;
    }
    void checksums() {
        QFETCH(std::optional<QString>, sha);
        QFETCH(std::optional<QString>, normalized);
        QCOMPARE(ScriptInputs::normalizedChecksum(sha), normalized);
        // The script compares exactly that text, or is not made at all.
        const auto script = scriptFor(u"1.0"_qs, sha);
        QCOMPARE(script.has_value(), normalized.has_value());
        if (script)
            QCOMPARE(line(*script, 17),
                     u"[ \"$ACT\" = \""_qs + *normalized + u"\" ] || fail \"checksum mismatch\""_qs);
    }

    void versions_data() {
        QTest::addColumn<QString>("version");
        QTest::addColumn<QString>("shown");
        QTest::newRow("parenthesised suffix") << u"1.2.3 (beta)"_qs << u"1.2.3beta"_qs;
        QTest::newRow("allowed punctuation") << u"v2.0-rc_1"_qs << u"v2.0-rc_1"_qs;
        QTest::newRow("shell syntax") << u"1.0;rm -rf $HOME`x`"_qs << u"1.0rm-rfHOMEx"_qs;
        QTest::newRow("line break") << u"1.0\nrm -rf /\r"_qs << u"1.0rm-rf"_qs;
        QTest::newRow("unicode letters and digits") << u"版本３.1ä"_qs << u"版本３.1ä"_qs;
        QTest::newRow("symbols outside the BMP dropped") << u"1.0🚀"_qs << u"1.0"_qs;
        QTest::newRow("empty") << QString() << QString();
    }
    void versions() {
        QFETCH(QString, version);
        QFETCH(QString, shown);
        QCOMPARE(ScriptInputs::filteredVersion(version), shown);
        const auto script = scriptFor(version);
        QVERIFY(script);
        QCOMPARE(line(*script, 2), u"# Nubra 自更新安装脚本（版本 "_qs + shown + u"）——生成即一次性使用"_qs);
        QCOMPARE(script->count(u'\n'), 35); // nothing in the version can add a line
    }

    void refusesUnsafePaths_data() {
        QTest::addColumn<QString>("character");
        for (const char* c : {"\"", "'", "`", "$", "\\"})
            QTest::newRow(c) << QString::fromLatin1(c);
    }
    void refusesUnsafePaths() {
        QFETCH(QString, character);
        const QString unsafe = u"/tmp/a"_qs + character + u"b.app.zip"_qs;
        QCOMPARE(scriptFor(u"1.0"_qs, validSha, unsafe, errPath), std::nullopt);
        QCOMPARE(scriptFor(u"1.0"_qs, validSha, zipPath, unsafe), std::nullopt);
    }

    void keepsOtherPathsVerbatim() {
        const QString zip = u"/home/李 雷/Nubra (1)/a&b;c|d*.app.zip"_qs;
        const QString err = u"/var/tmp/err #1.err"_qs;
        const auto script = scriptFor(u"1.0"_qs, validSha, zip, err);
        QVERIFY(script);
        QCOMPARE(line(*script, 4), u"ZIP=\""_qs + zip + u'"');
        QCOMPARE(line(*script, 5), u"ERR=\""_qs + err + u'"');
    }

    void linuxScriptRefusesUnsafeInput_data() {
        QTest::addColumn<LinuxUpdate>("update");
        QTest::addColumn<LinuxUpdaterScript::Refusal>("reason");
        using enum LinuxUpdaterScript::Refusal;
        const auto with = [](auto change) {
            LinuxUpdate update = validLinuxUpdate();
            change(update);
            return update;
        };
        QTest::newRow("checksum of 63 digits")
            << with([](LinuxUpdate& u) { u.expectedSha256 = validSha.first(63); }) << checksum;
        QTest::newRow("dollar in archive path")
            << with([](LinuxUpdate& u) { u.archivePath = u"/tmp/$(reboot).tar.gz"_qs; }) << unsafePath;
        QTest::newRow("line break in note path")
            << with([](LinuxUpdate& u) { u.errPath = u"/tmp/a\nreboot"_qs; }) << unsafePath;
        QTest::newRow("backquote in relaunch argument") << with([](LinuxUpdate& u) {
            u.relaunchArguments = {u"--ok"_qs, u"`id`"_qs};
        }) << unsafePath;
        QTest::newRow("quote in install folder")
            << with([](LinuxUpdate& u) { u.installDir = u"/home/u/Nu\"bra"_qs; }) << unsafePath;
        QTest::newRow("relative install folder")
            << with([](LinuxUpdate& u) { u.installDir = u".local/opt/Nubra"_qs; }) << unsafePath;
        QTest::newRow("install folder resolving to the root")
            << with([](LinuxUpdate& u) { u.installDir = u"/home/u/../../"_qs; }) << unsafePath;
        QTest::newRow("private key block")
            << with([](LinuxUpdate& u) { u.publicKeyPem.replace(u"PUBLIC"_qs, u"PRIVATE"_qs); }) << key;
        QTest::newRow("key block followed by shell text")
            << with([](LinuxUpdate& u) { u.publicKeyPem += u"NUBRA_RELEASE_KEY\nreboot\n"_qs; }) << key;
        QTest::newRow("key with a stray character")
            << with([](LinuxUpdate& u) { u.publicKeyPem.replace(u'+', u'$'); }) << key;
        QTest::newRow("X25519 key instead of Ed25519") << with([](LinuxUpdate& u) {
            // Same DER layout with the object identifier 1.3.101.110 in place of 1.3.101.112.
            u.publicKeyPem.replace(u"MCowBQYDK2Vw"_qs, u"MCowBQYDK2Vu"_qs);
        }) << key;
        QTest::newRow("signature of 63 bytes") << with([](LinuxUpdate& u) {
            u.signatureBase64 = QString::fromLatin1(QByteArray(63, '\x5a').toBase64());
        }) << signature;
        QTest::newRow("signature with shell text")
            << with([](LinuxUpdate& u) { u.signatureBase64 += u"';reboot;'"_qs; }) << signature;
        QTest::newRow("no process id") << with([](LinuxUpdate& u) { u.pid = 0; }) << processOrPolls;
        QTest::newRow("no version signature, as older manifests")
            << with([](LinuxUpdate& u) { u.versionSignatureBase64.clear(); }) << signature;
        QTest::newRow("version not newer")
            << with([](LinuxUpdate& u) { u.version = u"1.3.0"_qs; }) << version;
        QTest::newRow("version with shell text")
            << with([](LinuxUpdate& u) { u.version = u"9.0.0';reboot;'"_qs; }) << version;
    }

    void linuxScriptRefusesUnsafeInput() {
        QFETCH(LinuxUpdate, update);
        QFETCH(LinuxUpdaterScript::Refusal, reason);
        QVERIFY(LinuxUpdaterScript::build(validLinuxUpdate())); // the base every row changes is accepted
        QCOMPARE(LinuxUpdaterScript::refusal(update), reason);
        QCOMPARE(LinuxUpdaterScript::build(update), std::nullopt);
    }
};

QTEST_APPLESS_MAIN(UpdaterScriptTest)
#include "tst_updaterscript.moc"
