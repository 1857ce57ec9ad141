#include "NubraCore/Update/UpdaterScript.h"

#include <QStringList>
#include <QTest>

namespace {

const QString validSha = QStringLiteral("0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef");
const QString zipPath = QStringLiteral("/tmp/Nubra-1.4.0-6F1C.app.zip");
const QString errPath = QStringLiteral("/tmp/nubra-update-91AB.err");

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
    void buildsTheWholeScript() {
        const QString expected = QString::fromUtf8(R"sh(
#!/bin/bash
# Nubra 自更新安装脚本（版本 1.4.0beta）——生成即一次性使用
APP="/Applications/Nubra.app"
ZIP="/tmp/Nubra-1.4.0 (beta)-6F1C.app.zip"
ERR="/tmp/nubra-update-91AB.err"
STAGE="$(mktemp -d /tmp/nubra-stage.XXXXXX)" || exit 1
OLD="$(mktemp -d /tmp/nubra-old.XXXXXX)" || { rm -rf "$STAGE"; exit 1; }
log() { echo "$1" > "$ERR"; }
fail() { log "$1"; rm -rf "$STAGE" "$OLD"; rm -f "$0"; exit 1; }
# 等当前进程退出（含超时兜底：120s 后照常继续，防 pgrep 误判卡死）
ELAPSED=0
while pgrep -f "Nubra.app/Contents/MacOS" >/dev/null 2>&1; do
  sleep 0.4; ELAPSED=$((ELAPSED+1)); [ $ELAPSED -gt 300 ] && break
done
# 1) 强制 sha256 校验（缺失/不符 → 拒绝安装，保留旧版）
ACT=$(shasum -a 256 "$ZIP" | awk '{print $1}')
[ "$ACT" = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef" ] || fail "checksum mismatch"
# 2) 解压到暂存
case "$ZIP" in
  *.dmg) hdiutil attach -nobrowse -quiet -mountpoint "$STAGE" "$ZIP" || fail "dmg attach failed" ;;
  *) ditto -x -k "$ZIP" "$STAGE" || fail "unzip failed" ;;
esac
[ -x "$STAGE/Nubra.app/Contents/MacOS/Nubra" ] || fail "extracted bundle incomplete"
# 3) 代码签名校验：包体必须带有效签名（ad-hoc/自签/正式均可，篡改必失败）
codesign --verify --deep --strict "$STAGE/Nubra.app" >/dev/null 2>&1 || fail "codesign verify failed"
# 4) 备份旧版 → 原子替换（失败回滚）
if [ -d "$APP" ]; then mv "$APP" "$OLD/Nubra.app" || fail "backup failed"; fi
if ! ditto "$STAGE/Nubra.app" "$APP"; then
  [ ! -d "$OLD/Nubra.app" ] || mv "$OLD/Nubra.app" "$APP"
  fail "install failed"
fi
# 5) 重启新版并清理
open "$APP"
rm -rf "$STAGE" "$OLD"
rm -f "$ZIP"
rm -f "$0")sh")
                                     .sliced(1); // the literal opens with a line feed for readability
        const auto script = UpdaterScript::build(
            QStringLiteral("/tmp/Nubra-1.4.0 (beta)-6F1C.app.zip"), QStringLiteral("1.4.0 (beta)"),
            QStringLiteral(" \t0123456789ABCDEF0123456789abcdef0123456789ABCDEF0123456789abcdef\r\n"),
            QStringLiteral("/tmp/nubra-update-91AB.err"));
        QVERIFY(script);
        QCOMPARE(script->split(u'\n').size(), 36);
        QVERIFY(!script->endsWith(u'\n'));
        QCOMPARE(*script, expected);
    }

    void refusesChecksums_data() {
        QTest::addColumn<std::optional<QString>>("sha");
        QTest::newRow("absent") << std::optional<QString>();
        QTest::newRow("empty") << std::optional<QString>(QString());
        QTest::newRow("blank") << std::optional<QString>(QStringLiteral(" \n"));
        QTest::newRow("63 digits") << std::optional<QString>(validSha.first(63));
        QTest::newRow("65 digits") << std::optional<QString>(validSha + u'0');
        QTest::newRow("letter g") << std::optional<QString>(validSha.first(63) + u'g');
        QTest::newRow("inner blank") << std::optional<QString>(validSha.first(32) + u' ' +
                                                               validSha.sliced(33));
        QTest::newRow("full-width digit")
            << std::optional<QString>(QStringLiteral("０") + validSha.sliced(1));
        QTest::newRow("quote") << std::optional<QString>(validSha.first(63) + u'"');
    }
    void refusesChecksums() {
        QFETCH(std::optional<QString>, sha);
        QCOMPARE(scriptFor(QStringLiteral("1.0"), sha), std::nullopt);
    }

    void acceptsTrimmedChecksumInLowerCase_data() {
        QTest::addColumn<QString>("sha");
        QTest::newRow("as is") << validSha;
        QTest::newRow("upper case") << validSha.toUpper();
        QTest::newRow("surrounded by blanks and breaks")
            << QStringLiteral("\n\t ") + validSha.toUpper() + QStringLiteral(" \r\n");
    }
    void acceptsTrimmedChecksumInLowerCase() {
        QFETCH(QString, sha);
        const auto script = scriptFor(QStringLiteral("1.0"), sha);
        QVERIFY(script);
        QCOMPARE(line(*script, 17), QStringLiteral("[ \"$ACT\" = \"") + validSha +
                                        QStringLiteral("\" ] || fail \"checksum mismatch\""));
    }

    void refusesUnsafePaths_data() {
        QTest::addColumn<QString>("character");
        for (const char* c : {"\"", "'", "`", "$", "\\"})
            QTest::newRow(c) << QString::fromLatin1(c);
    }
    void refusesUnsafePaths() {
        QFETCH(QString, character);
        const QString unsafe = QStringLiteral("/tmp/a") + character + QStringLiteral("b.app.zip");
        QCOMPARE(scriptFor(QStringLiteral("1.0"), validSha, unsafe, errPath), std::nullopt);
        QCOMPARE(scriptFor(QStringLiteral("1.0"), validSha, zipPath, unsafe), std::nullopt);
    }

    void keepsOtherPathsVerbatim() {
        const QString zip = QStringLiteral("/home/李 雷/Nubra (1)/a&b;c|d*.app.zip");
        const QString err = QStringLiteral("/var/tmp/err #1.err");
        const auto script = scriptFor(QStringLiteral("1.0"), validSha, zip, err);
        QVERIFY(script);
        QCOMPARE(line(*script, 4), QStringLiteral("ZIP=\"") + zip + u'"');
        QCOMPARE(line(*script, 5), QStringLiteral("ERR=\"") + err + u'"');
    }

    void filtersTheVersion_data() {
        QTest::addColumn<QString>("version");
        QTest::addColumn<QString>("shown");
        QTest::newRow("parenthesised suffix")
            << QStringLiteral("1.2.3 (beta)") << QStringLiteral("1.2.3beta");
        QTest::newRow("allowed punctuation") << QStringLiteral("v2.0-rc_1") << QStringLiteral("v2.0-rc_1");
        QTest::newRow("shell syntax")
            << QStringLiteral("1.0;rm -rf $HOME`x`") << QStringLiteral("1.0rm-rfHOMEx");
        QTest::newRow("line break") << QStringLiteral("1.0\nrm -rf /\r") << QStringLiteral("1.0rm-rf");
        QTest::newRow("unicode letters and digits")
            << QStringLiteral("版本３.1ä") << QStringLiteral("版本３.1ä");
        QTest::newRow("symbols outside the BMP dropped") << QStringLiteral("1.0🚀") << QStringLiteral("1.0");
        QTest::newRow("empty") << QString() << QString();
    }
    void filtersTheVersion() {
        QFETCH(QString, version);
        QFETCH(QString, shown);
        const auto script = scriptFor(version);
        QVERIFY(script);
        QCOMPARE(line(*script, 2), QStringLiteral("# Nubra 自更新安装脚本（版本 ") + shown +
                                       QStringLiteral("）——生成即一次性使用"));
        QCOMPARE(script->count(u'\n'), 35); // nothing in the version can add a line
    }
};

QTEST_APPLESS_MAIN(UpdaterScriptTest)
#include "tst_updaterscript.moc"
