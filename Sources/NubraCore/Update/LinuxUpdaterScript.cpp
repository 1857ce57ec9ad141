#include "NubraCore/Update/LinuxUpdaterScript.h"

#include "NubraCore/Update/ScriptInputs.h"
#include "NubraCore/Update/Semver.h"

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

// A version as releases are numbered: it goes into the script and the signed statement as it is.
bool isPlainVersion(const QString& version) {
    const auto isPlain = [](QChar c) {
        return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') ||
               c == u'.' || c == u'-' || c == u'+';
    };
    return !version.isEmpty() && version.size() <= 64 && std::all_of(version.begin(), version.end(), isPlain);
}

// Starts bin/nubra of the installation on its own, outside the folders the script may remove.
QString startNubra(const QStringList& arguments) {
    QString line = QStringLiteral("( cd / && exec setsid nohup \"$APP/bin/nubra\"");
    for (const QString& argument : arguments)
        line += u' ' + quoted(argument);
    return line + QStringLiteral(" >/dev/null 2>&1 </dev/null ) &");
}

} // namespace

namespace LinuxUpdaterScript {

QByteArray releaseStatement(const QString& version, const QString& sha256) {
    return "nubra-release " + version.toUtf8() + ' ' + sha256.trimmed().toLower().toUtf8();
}

std::optional<Refusal> refusal(const LinuxUpdate& update) {
    const QString app = QDir::cleanPath(update.installDir);
    const QStringList texts = QStringList{update.archivePath, update.errPath, update.installDir}
                              << update.relaunchArguments;
    if (!ScriptInputs::normalizedChecksum(update.expectedSha256))
        return Refusal::checksum;
    if (!canonicalSignature(update.signatureBase64) || !canonicalSignature(update.versionSignatureBase64))
        return Refusal::signature;
    if (!isPlainVersion(update.version) || !Semver::isNewer(update.version, update.currentVersion))
        return Refusal::version;
    if (!std::all_of(texts.begin(), texts.end(), isSafeInDoubleQuotes) || !app.startsWith(u'/') ||
        app == u"/")
        return Refusal::unsafePath;
    if (!canonicalPublicKey(update.publicKeyPem))
        return Refusal::key;
    if (update.pid < 1 || update.waitPolls < 0 || update.healthPolls < 0)
        return Refusal::processOrPolls;
    return std::nullopt;
}

std::optional<QString> build(const LinuxUpdate& update) {
    if (refusal(update))
        return std::nullopt;
    const QString sha = *ScriptInputs::normalizedChecksum(update.expectedSha256);
    const QString key = *canonicalPublicKey(update.publicKeyPem);
    const QString signature = *canonicalSignature(update.signatureBase64);
    const QString versionSignature = *canonicalSignature(update.versionSignatureBase64);
    const QString app = QDir::cleanPath(update.installDir);
    const QString parent = app.first(std::max<qsizetype>(app.lastIndexOf(u'/'), 1));

    const QStringList lines = {
        QStringLiteral("#!/bin/bash"),
        QStringLiteral("# Nubra update of the user-local installation to version ") + update.version +
            QStringLiteral(", generated for this one run"),
        QStringLiteral("APP=") + quoted(app),
        QStringLiteral("PARENT=") + quoted(parent),
        QStringLiteral("TGZ=") + quoted(update.archivePath),
        QStringLiteral("ERR=") + quoted(update.errPath),
        QStringLiteral("STAGE=\"\""),
        QStringLiteral("OLD=\"\""),
        QStringLiteral("RESTART=\"\""),
        QStringLiteral("log() { printf '%s\\n' \"$1\" > \"$ERR\"; }"),
        QStringLiteral("# Once the old process has gone, a failure starts it again to say what happened."),
        QStringLiteral("fail() {"),
        QStringLiteral("  log \"$1\""),
        QStringLiteral("  [ -z \"$STAGE\" ] || rm -rf \"$STAGE\""),
        QStringLiteral("  [ -z \"$OLD\" ] || rm -rf \"$OLD\""),
        QStringLiteral("  rm -f \"$0\""),
        QStringLiteral("  if [ -n \"$RESTART\" ] && [ -x \"$APP/bin/nubra\" ]; then"),
        u"  "_qs + startNubra(QStringList{QStringLiteral("--update-failed"), update.errPath}
                              << update.relaunchArguments),
        QStringLiteral("  fi"),
        QStringLiteral("  exit 1"),
        QStringLiteral("}"),
        QStringLiteral("# Staging and backup sit next to the installation, so both swaps below are renames"),
        QStringLiteral("# within one file system."),
        QStringLiteral("STAGE=\"$(mktemp -d \"$PARENT/.nubra-stage.XXXXXX\")\" || fail \"cannot create "
                       "staging folder\""),
        QStringLiteral("# 1) The archive must have the checksum the release manifest announced."),
        QStringLiteral("ACT=\"$(sha256sum < \"$TGZ\")\""),
        QStringLiteral("[ \"${ACT%% *}\" = ") + quoted(sha) +
            QStringLiteral(" ] || fail \"checksum mismatch\""),
        QStringLiteral(
            "# 2) It must be signed with the release key built into this Nubra, and so must the statement"),
        QStringLiteral("# that it is version ") + update.version +
            QStringLiteral(": an old release cannot be announced as a new one. The signature"),
        QStringLiteral(
            "# covers the archive itself, so it is checked before unpacking: tar never reads bytes"),
        QStringLiteral("# that have not been verified."),
        QStringLiteral("cat > \"$STAGE/release.pub\" <<'NUBRA_RELEASE_KEY'"),
        key,
        QStringLiteral("NUBRA_RELEASE_KEY"),
        QStringLiteral("printf '%s' '") + signature +
            QStringLiteral("' | base64 -d > \"$STAGE/release.sig\""),
        QStringLiteral("openssl pkeyutl -verify -pubin -inkey \"$STAGE/release.pub\" -rawin -in \"$TGZ\" \\"),
        QStringLiteral(
            "  -sigfile \"$STAGE/release.sig\" >/dev/null 2>&1 || fail \"signature verify failed\""),
        QStringLiteral("printf '%s' '") + QString::fromUtf8(releaseStatement(update.version, sha)) +
            QStringLiteral("' > \"$STAGE/version\""),
        QStringLiteral("printf '%s' '") + versionSignature +
            QStringLiteral("' | base64 -d > \"$STAGE/version.sig\""),
        QStringLiteral("openssl pkeyutl -verify -pubin -inkey \"$STAGE/release.pub\" -rawin \\"),
        QStringLiteral("  -in \"$STAGE/version\" -sigfile \"$STAGE/version.sig\" >/dev/null 2>&1 || "
                       "fail \"version signature verify failed\""),
        QStringLiteral("if [ \"$1\" = --check ]; then"),
        QStringLiteral("  rm -rf \"$STAGE\""),
        QStringLiteral("  exit 0"),
        QStringLiteral("fi"),
        QStringLiteral(
            "OLD=\"$(mktemp -d \"$PARENT/.nubra-old.XXXXXX\")\" || fail \"cannot create backup folder\""),
        QStringLiteral(
            "# Wait for the running Nubra to end, polling every 0.4 s; after the last poll carry on."),
        QStringLiteral("POLLS=0"),
        QStringLiteral("while kill -0 ") + QString::number(update.pid) + QStringLiteral(" 2>/dev/null; do"),
        QStringLiteral("  [ $POLLS -ge ") + QString::number(update.waitPolls) + QStringLiteral(" ] && break"),
        QStringLiteral("  sleep 0.4; POLLS=$((POLLS+1))"),
        QStringLiteral("done"),
        QStringLiteral("RESTART=1"),
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
        QStringLiteral("# 5) Start the new version and keep the old one until the new one says it is up, by"),
        QStringLiteral("# creating the file it is given; if it ends or stays silent, the old one goes back."),
        QStringLiteral("HEALTHY=\"$OLD/healthy\""),
        startNubra(QStringList{QStringLiteral("--update-health"), QStringLiteral("$HEALTHY")}
                   << update.relaunchArguments),
        QStringLiteral("NEW=$!"),
        QStringLiteral("# Running, and not just waiting to be reaped."),
        QStringLiteral("alive() { STATE=\"$(sed 's/.*) //' \"/proc/$1/stat\" 2>/dev/null)\" && "
                       "[ -n \"$STATE\" ] && [ \"${STATE%% *}\" != Z ]; }"),
        QStringLiteral("WAITS=0"),
        QStringLiteral("while [ ! -e \"$HEALTHY\" ]; do"),
        QStringLiteral("  if [ $WAITS -ge ") + QString::number(update.healthPolls) +
            QStringLiteral(" ] || ! alive $NEW; then"),
        QStringLiteral("    [ -e \"$HEALTHY\" ] && break"),
        QStringLiteral("    kill $NEW 2>/dev/null"),
        QStringLiteral("    mv -T \"$APP\" \"$STAGE/Nubra\" && mv -T \"$OLD/Nubra\" \"$APP\" || {"),
        QStringLiteral("      KEPT=\"$OLD\"; OLD=\"\""),
        QStringLiteral(
            "      fail \"the new version did not start, the previous version is kept in $KEPT/Nubra\""),
        QStringLiteral("    }"),
        QStringLiteral("    fail \"the new version did not start\""),
        QStringLiteral("  fi"),
        QStringLiteral("  sleep 0.5; WAITS=$((WAITS+1))"),
        QStringLiteral("done"),
        QStringLiteral("rm -rf \"$STAGE\" \"$OLD\""),
        QStringLiteral("rm -f \"$TGZ\""),
        QStringLiteral("rm -f \"$0\""),
    };
    return lines.join(u'\n');
}

} // namespace LinuxUpdaterScript
