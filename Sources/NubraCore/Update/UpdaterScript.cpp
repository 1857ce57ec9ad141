#include "NubraCore/Update/UpdaterScript.h"

#include "NubraCore/Update/ScriptInputs.h"

#include <QStringList>

#include <algorithm>

namespace {

// The paths are pasted between double quotes; refuse whatever could end the quoting or be expanded
// there, and the single quote with them so no path needs any escaping at all.
bool isSafeInDoubleQuotes(const QString& path) {
    const auto isSpecial = [](QChar c) {
        return c == u'"' || c == u'\'' || c == u'`' || c == u'$' || c == u'\\';
    };
    return std::none_of(path.begin(), path.end(), isSpecial);
}

} // namespace

namespace UpdaterScript {

std::optional<QString> build(const QString& zipPath, const QString& rawVersion,
                             const std::optional<QString>& expectedSha256, const QString& errPath) {
    const std::optional<QString> sha = ScriptInputs::normalizedChecksum(expectedSha256);
    if (!sha || !isSafeInDoubleQuotes(zipPath) || !isSafeInDoubleQuotes(errPath))
        return std::nullopt;
    const QString& checksum = *sha;
    const QString version = ScriptInputs::filteredVersion(rawVersion);

    const QStringList lines = {
        QStringLiteral("#!/bin/bash"),
        QStringLiteral("# Nubra 自更新安装脚本（版本 ") + version + QStringLiteral("）——生成即一次性使用"),
        QStringLiteral("APP=\"/Applications/Nubra.app\""),
        QStringLiteral("ZIP=\"") + zipPath + QStringLiteral("\""),
        QStringLiteral("ERR=\"") + errPath + QStringLiteral("\""),
        QStringLiteral("STAGE=\"$(mktemp -d /tmp/nubra-stage.XXXXXX)\" || exit 1"),
        QStringLiteral("OLD=\"$(mktemp -d /tmp/nubra-old.XXXXXX)\" || { rm -rf \"$STAGE\"; exit 1; }"),
        QStringLiteral("log() { echo \"$1\" > \"$ERR\"; }"),
        QStringLiteral("fail() { log \"$1\"; rm -rf \"$STAGE\" \"$OLD\"; rm -f \"$0\"; exit 1; }"),
        QStringLiteral("# 等当前进程退出（含超时兜底：120s 后照常继续，防 pgrep 误判卡死）"),
        QStringLiteral("ELAPSED=0"),
        QStringLiteral("while pgrep -f \"Nubra.app/Contents/MacOS\" >/dev/null 2>&1; do"),
        QStringLiteral("  sleep 0.4; ELAPSED=$((ELAPSED+1)); [ $ELAPSED -gt 300 ] && break"),
        QStringLiteral("done"),
        QStringLiteral("# 1) 强制 sha256 校验（缺失/不符 → 拒绝安装，保留旧版）"),
        QStringLiteral("ACT=$(shasum -a 256 \"$ZIP\" | awk '{print $1}')"),
        QStringLiteral("[ \"$ACT\" = \"") + checksum + QStringLiteral("\" ] || fail \"checksum mismatch\""),
        QStringLiteral("# 2) 解压到暂存"),
        QStringLiteral("case \"$ZIP\" in"),
        QStringLiteral("  *.dmg) hdiutil attach -nobrowse -quiet -mountpoint \"$STAGE\" \"$ZIP\" || fail "
                       "\"dmg attach failed\" ;;"),
        QStringLiteral("  *) ditto -x -k \"$ZIP\" \"$STAGE\" || fail \"unzip failed\" ;;"),
        QStringLiteral("esac"),
        QStringLiteral(
            "[ -x \"$STAGE/Nubra.app/Contents/MacOS/Nubra\" ] || fail \"extracted bundle incomplete\""),
        QStringLiteral("# 3) 代码签名校验：包体必须带有效签名（ad-hoc/自签/正式均可，篡改必失败）"),
        QStringLiteral("codesign --verify --deep --strict \"$STAGE/Nubra.app\" >/dev/null 2>&1 || fail "
                       "\"codesign verify failed\""),
        QStringLiteral("# 4) 备份旧版 → 原子替换（失败回滚）"),
        QStringLiteral(
            "if [ -d \"$APP\" ]; then mv \"$APP\" \"$OLD/Nubra.app\" || fail \"backup failed\"; fi"),
        QStringLiteral("if ! ditto \"$STAGE/Nubra.app\" \"$APP\"; then"),
        QStringLiteral("  [ ! -d \"$OLD/Nubra.app\" ] || mv \"$OLD/Nubra.app\" \"$APP\""),
        QStringLiteral("  fail \"install failed\""),
        QStringLiteral("fi"),
        QStringLiteral("# 5) 重启新版并清理"),
        QStringLiteral("open \"$APP\""),
        QStringLiteral("rm -rf \"$STAGE\" \"$OLD\""),
        QStringLiteral("rm -f \"$ZIP\""),
        QStringLiteral("rm -f \"$0\""),
    };
    return lines.join(u'\n');
}

} // namespace UpdaterScript
