#include "NubraCore/Update/LinuxUpdaterScript.h"

#include "NubraCore/Update/ScriptInputs.h"

#include <QDir>

#include <algorithm>

namespace {

// Paths and arguments are pasted between double quotes, each on its own line; refuse whatever could
// end the quoting, be expanded there or start a new line.
bool isSafeInDoubleQuotes(const QString& text) {
    const auto isSpecial = [](QChar c) {
        return c == u'"' || c == u'\'' || c == u'`' || c == u'$' || c == u'\\' || c.unicode() < 0x20 ||
               c.unicode() == 0x7f;
    };
    return std::none_of(text.begin(), text.end(), isSpecial);
}

// Canonical base64 only (padded, no blanks), so what is checked here is what the script holds.
std::optional<QByteArray> strictBase64(const QString& text) {
    const QByteArray latin1 = text.toLatin1();
    const auto result = QByteArray::fromBase64Encoding(latin1, QByteArray::AbortOnBase64DecodingErrors);
    if (!result || latin1.isEmpty() || result.decoded.toBase64() != latin1)
        return std::nullopt;
    return result.decoded;
}

// An Ed25519 SubjectPublicKeyInfo is a fixed 12-byte DER header followed by the 32-byte key.
constexpr char ed25519SpkiHeader[] = "\x30\x2a\x30\x05\x06\x03\x2b\x65\x70\x03\x21\x00";

// The key written back in canonical PEM form, so the script never holds text that came from outside
// beyond the base64 of a key we have checked.
std::optional<QString> canonicalPublicKey(const QString& pem) {
    QStringList lines = pem.trimmed().split(u'\n');
    for (QString& line : lines)
        line = line.trimmed();
    if (lines.size() < 3 || lines.first() != u"-----BEGIN PUBLIC KEY-----" ||
        lines.last() != u"-----END PUBLIC KEY-----")
        return std::nullopt;
    const QStringList body = lines.mid(1, lines.size() - 2);
    if (std::any_of(body.begin(), body.end(), [](const QString& line) { return line.isEmpty(); }))
        return std::nullopt;
    const std::optional<QByteArray> der = strictBase64(body.join(QString()));
    const QByteArray header = QByteArray::fromRawData(ed25519SpkiHeader, sizeof ed25519SpkiHeader - 1);
    if (!der || der->size() != header.size() + 32 || !der->startsWith(header))
        return std::nullopt;
    return QStringLiteral("-----BEGIN PUBLIC KEY-----\n") + QString::fromLatin1(der->toBase64()) +
           QStringLiteral("\n-----END PUBLIC KEY-----");
}

// Line breaks and blanks may wrap the text, as base64 tools do by default.
std::optional<QString> canonicalSignature(const QString& base64) {
    QString compact = base64;
    compact.removeIf([](QChar c) { return c.isSpace(); });
    const std::optional<QByteArray> signature = strictBase64(compact);
    if (!signature || signature->size() != 64)
        return std::nullopt;
    return QString::fromLatin1(signature->toBase64());
}

QString quoted(const QString& text) {
    return u'"' + text + u'"';
}

} // namespace

namespace LinuxUpdaterScript {

std::optional<QString> build(const LinuxUpdate& update) {
    const std::optional<QString> sha = ScriptInputs::normalizedChecksum(update.expectedSha256);
    const std::optional<QString> key = canonicalPublicKey(update.publicKeyPem);
    const std::optional<QString> signature = canonicalSignature(update.signatureBase64);
    const QString app = QDir::cleanPath(update.installDir);
    const QStringList texts = QStringList{update.archivePath, update.errPath, update.installDir}
                              << update.relaunchArguments;
    if (!sha || !key || !signature || !std::all_of(texts.begin(), texts.end(), isSafeInDoubleQuotes) ||
        !app.startsWith(u'/') || app == u"/" || update.pid < 1 || update.waitPolls < 0)
        return std::nullopt;
    const QString parent = app.first(std::max<qsizetype>(app.lastIndexOf(u'/'), 1));

    QString relaunch = QStringLiteral("  exec setsid nohup \"$APP/bin/nubra\"");
    for (const QString& argument : update.relaunchArguments)
        relaunch += u' ' + quoted(argument);
    relaunch += QStringLiteral(" >/dev/null 2>&1 </dev/null");

    const QStringList lines = {
        QStringLiteral("#!/bin/bash"),
        QStringLiteral("# Nubra update of the user-local installation to version ") +
            ScriptInputs::filteredVersion(update.version) + QStringLiteral(", generated for this one run"),
        QStringLiteral("APP=") + quoted(app),
        QStringLiteral("PARENT=") + quoted(parent),
        QStringLiteral("TGZ=") + quoted(update.archivePath),
        QStringLiteral("ERR=") + quoted(update.errPath),
        QStringLiteral("STAGE=\"\""),
        QStringLiteral("OLD=\"\""),
        QStringLiteral("log() { printf '%s\\n' \"$1\" > \"$ERR\"; }"),
        QStringLiteral("fail() {"),
        QStringLiteral("  log \"$1\""),
        QStringLiteral("  [ -z \"$STAGE\" ] || rm -rf \"$STAGE\""),
        QStringLiteral("  [ -z \"$OLD\" ] || rm -rf \"$OLD\""),
        QStringLiteral("  rm -f \"$0\""),
        QStringLiteral("  exit 1"),
        QStringLiteral("}"),
        QStringLiteral("# Staging and backup sit next to the installation, so both swaps below are renames"),
        QStringLiteral("# within one file system."),
        QStringLiteral("STAGE=\"$(mktemp -d \"$PARENT/.nubra-stage.XXXXXX\")\" || fail \"cannot create "
                       "staging folder\""),
        QStringLiteral(
            "OLD=\"$(mktemp -d \"$PARENT/.nubra-old.XXXXXX\")\" || fail \"cannot create backup folder\""),
        QStringLiteral(
            "# Wait for the running Nubra to end, polling every 0.4 s; after the last poll carry on."),
        QStringLiteral("POLLS=0"),
        QStringLiteral("while kill -0 ") + QString::number(update.pid) + QStringLiteral(" 2>/dev/null; do"),
        QStringLiteral("  [ $POLLS -ge ") + QString::number(update.waitPolls) + QStringLiteral(" ] && break"),
        QStringLiteral("  sleep 0.4; POLLS=$((POLLS+1))"),
        QStringLiteral("done"),
        QStringLiteral("# 1) The archive must have the checksum the release manifest announced."),
        QStringLiteral("ACT=\"$(sha256sum < \"$TGZ\")\""),
        QStringLiteral("[ \"${ACT%% *}\" = ") + quoted(*sha) +
            QStringLiteral(" ] || fail \"checksum mismatch\""),
        QStringLiteral(
            "# 2) And it must be signed with the release key built into this Nubra. The signature"),
        QStringLiteral(
            "# covers the archive itself, so it is checked before unpacking: tar never reads bytes"),
        QStringLiteral("# that have not been verified."),
        QStringLiteral("cat > \"$STAGE/release.pub\" <<'NUBRA_RELEASE_KEY'"),
        *key,
        QStringLiteral("NUBRA_RELEASE_KEY"),
        QStringLiteral("printf '%s' '") + *signature +
            QStringLiteral("' | base64 -d > \"$STAGE/release.sig\""),
        QStringLiteral("openssl pkeyutl -verify -pubin -inkey \"$STAGE/release.pub\" -rawin -in \"$TGZ\" \\"),
        QStringLiteral(
            "  -sigfile \"$STAGE/release.sig\" >/dev/null 2>&1 || fail \"signature verify failed\""),
        QStringLiteral("# 3) Unpack into staging: every member below the one folder Nubra/, none absolute,"),
        QStringLiteral("# none climbing out with \"..\"."),
        QStringLiteral("tar -tzf \"$TGZ\" > \"$STAGE/members\" 2>/dev/null || fail \"unpack failed\""),
        QStringLiteral("if grep -qvE '^Nubra(/|$)' \"$STAGE/members\" || grep -qE '(^|/)\\.\\.(/|$)' "
                       "\"$STAGE/members\"; then"),
        QStringLiteral("  fail \"unsafe archive\""),
        QStringLiteral("fi"),
        QStringLiteral("tar -xzf \"$TGZ\" --no-same-owner -C \"$STAGE\" || fail \"unpack failed\""),
        QStringLiteral("[ -d \"$STAGE/Nubra\" ] && [ ! -L \"$STAGE/Nubra\" ] || fail \"extracted bundle "
                       "incomplete\""),
        QStringLiteral("for EXE in nubra nubra-glossd; do"),
        QStringLiteral("  [ -f \"$STAGE/Nubra/bin/$EXE\" ] && [ -x \"$STAGE/Nubra/bin/$EXE\" ] || fail "
                       "\"extracted bundle incomplete\""),
        QStringLiteral("done"),
        QStringLiteral(
            "# 4) Move the installed folder to the backup, rename the new one into place, and put"),
        QStringLiteral("# the old one back if that fails. Never delete the only copy of the old version."),
        QStringLiteral("if [ -e \"$APP\" ] || [ -L \"$APP\" ]; then"),
        QStringLiteral("  mv -T \"$APP\" \"$OLD/Nubra\" || fail \"backup failed\""),
        QStringLiteral("fi"),
        QStringLiteral("if ! mv -T \"$STAGE/Nubra\" \"$APP\"; then"),
        QStringLiteral("  if { [ -e \"$OLD/Nubra\" ] || [ -L \"$OLD/Nubra\" ]; } && ! mv -T \"$OLD/Nubra\" "
                       "\"$APP\"; then"),
        QStringLiteral("    KEPT=\"$OLD\"; OLD=\"\""),
        QStringLiteral("    fail \"install failed, the previous version is kept in $KEPT/Nubra\""),
        QStringLiteral("  fi"),
        QStringLiteral("  fail \"install failed\""),
        QStringLiteral("fi"),
        QStringLiteral(
            "# 5) Start the new version on its own, with the environment this script was given and"),
        QStringLiteral("# outside the folders about to go, then clean up."),
        QStringLiteral("("),
        QStringLiteral("  cd / || exit 1"),
        relaunch,
        QStringLiteral(") &"),
        QStringLiteral("rm -rf \"$STAGE\" \"$OLD\""),
        QStringLiteral("rm -f \"$TGZ\""),
        QStringLiteral("rm -f \"$0\""),
    };
    return lines.join(u'\n');
}

} // namespace LinuxUpdaterScript
