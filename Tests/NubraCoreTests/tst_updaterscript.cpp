// What both install-script builders accept into a script (ScriptInputs), and how the macOS builder
// pastes it; UpdaterScriptRun runs the macOS script for real.
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
        QTest::newRow("empty") << sha(QString()) << refused;
        QTest::newRow("blank") << sha(u" \n"_qs) << refused;
        QTest::newRow("63 digits") << sha(validSha.first(63)) << refused;
        QTest::newRow("65 digits") << sha(validSha + u'0') << refused;
        QTest::newRow("letter g") << sha(validSha.first(63) + u'g') << refused;
        QTest::newRow("inner blank") << sha(validSha.first(32) + u' ' + validSha.sliced(33)) << refused;
        QTest::newRow("full-width digit") << sha(u"０"_qs + validSha.sliced(1)) << refused;
        QTest::newRow("quote") << sha(validSha.first(63) + u'"') << refused;
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
};

QTEST_APPLESS_MAIN(UpdaterScriptTest)
#include "tst_updaterscript.moc"
