// Runs generated install scripts for real: bash executes them inside a bubblewrap sandbox whose
// /Applications and /tmp are private directories of the test, with stand-ins for the macOS tools.

#include "NubraCore/Update/UpdaterScript.h"
#include "TestSupport/ScriptSandbox.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>

#include <memory>

namespace {

// Each stand-in appends its arguments to a log named after it, so the test sees what was called.
const char* const shasumTool = R"sh(#!/bin/bash
echo "$*" >> "$NUBRA_TEST_LOG/shasum"
[ "$1" = "-a" ] && [ "$2" = "256" ] || exit 2
exec sha256sum "$3"
)sh";

const char* const dittoTool = R"sh(#!/bin/bash
echo "$*" >> "$NUBRA_TEST_LOG/ditto"
if [ "$1" = "-x" ]; then
    [ "$2" = "-k" ] || exit 2
    exec unzip -q "$3" -d "$4"
fi
[ -z "$NUBRA_TEST_DITTO_FAIL" ] || exit 1
exec cp -a "$1" "$2"
)sh";

const char* const codesignTool = R"sh(#!/bin/bash
echo "$*" >> "$NUBRA_TEST_LOG/codesign"
[ -z "$NUBRA_TEST_CODESIGN_FAIL" ]
)sh";

const char* const openTool = R"sh(#!/bin/bash
echo "$*" >> "$NUBRA_TEST_LOG/open"
)sh";

const char* const hdiutilTool = R"sh(#!/bin/bash
echo "$*" >> "$NUBRA_TEST_LOG/hdiutil"
exit 1
)sh";

// Reports the old process as running for the first NUBRA_TEST_RUNNING_POLLS calls, then as gone.
const char* const pgrepTool = R"sh(#!/bin/bash
echo "$*" >> "$NUBRA_TEST_LOG/pgrep"
[ "$(wc -l < "$NUBRA_TEST_LOG/pgrep")" -le "${NUBRA_TEST_RUNNING_POLLS:-0}" ]
)sh";

// Logs every pause; NUBRA_TEST_INSTANT_SLEEP makes them instant so the two-minute give-up is testable.
const char* const sleepTool = R"sh(#!/bin/bash
echo "$*" >> "$NUBRA_TEST_LOG/sleep"
[ -n "$NUBRA_TEST_INSTANT_SLEEP" ] || exec /usr/bin/sleep "$@"
)sh";

const QString appRelative = QStringLiteral("Nubra.app/Contents/MacOS/Nubra");

const QStringList privateDirs = {QStringLiteral("tmp"), QStringLiteral("Applications")};

using ScriptSandbox::readFile;
using ScriptSandbox::writeFile;

} // namespace

class UpdaterScriptRunTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();

    void installsGoodArchive();
    void installsWhenNothingIsInstalled();
    void waitsForTheOldProcessToExit();
    void givesUpWaitingAfterThreeHundredPolls();
    void keepsOldBundleOnChecksumMismatch();
    void refusesIncompleteBundle();
    void refusesBadSignature();
    void restoresBackupWhenCopyFails();

private:
    QString path(const QString& relative) const { return m_dir->filePath(relative); }
    QString log(const QString& tool) const {
        return QString::fromUtf8(readFile(path(QStringLiteral("log/") + tool)));
    }
    bool toolCalled(const QString& tool) const {
        return QFileInfo::exists(path(QStringLiteral("log/") + tool));
    }

    void installOldBundle();
    // Zips a new bundle into the archive the script is told to install; returns its SHA-256 in hex.
    QByteArray packNewBundle(bool executable = true);
    // Generates the script for `sha` and runs it to the end inside the sandbox; returns bash's status.
    int runScript(const QString& sha, const QStringList& environment = {});
    // The common outcome of every refusal: the note says why, the old bundle stays, the archive is
    // kept for diagnosis, and the script and its folders are gone.
    void verifyRefused(int status, const QByteArray& reason);
    QStringList leftoverFolders() const;

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_zipPath;
    QString m_scriptPath;
    QString m_errPath;
    QStringList m_sandbox;
};

void UpdaterScriptRunTest::initTestCase() {
    for (const char* tool : {"bash", "zip", "unzip", "sha256sum", "awk", "mktemp"})
        QVERIFY2(!QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty(), tool);
    const QString unavailable = ScriptSandbox::unavailableReason(privateDirs);
    if (!unavailable.isEmpty())
        QSKIP(qPrintable(unavailable));
}

void UpdaterScriptRunTest::init() {
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    for (const char* sub : {"tmp", "Applications", "log", "work", "new"})
        QVERIFY(QDir(m_dir->path()).mkpath(QString::fromLatin1(sub)));
    const std::pair<const char*, const char*> tools[] = {
        {"shasum", shasumTool},   {"ditto", dittoTool}, {"codesign", codesignTool}, {"open", openTool},
        {"hdiutil", hdiutilTool}, {"pgrep", pgrepTool}, {"sleep", sleepTool},
    };
    for (const auto& [name, body] : tools)
        QVERIFY(writeFile(path(QStringLiteral("bin/") + QString::fromLatin1(name)), body, true));

    const QString uuid = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    m_zipPath = path(QStringLiteral("work/Nubra-1.4.0-") + uuid + QStringLiteral(".app.zip"));
    m_scriptPath = path(QStringLiteral("work/nubra-update-") + uuid + QStringLiteral(".sh"));
    m_errPath = path(QStringLiteral("work/nubra-update-") + uuid + QStringLiteral(".err"));
    m_sandbox = ScriptSandbox::arguments(m_dir->path(), privateDirs);
}

void UpdaterScriptRunTest::cleanup() {
    m_dir.reset();
}

void UpdaterScriptRunTest::installOldBundle() {
    QVERIFY(writeFile(path(QStringLiteral("Applications/") + appRelative), "old", true));
    QVERIFY(writeFile(path(QStringLiteral("Applications/Nubra.app/Contents/Info.plist")), "1.3.0"));
}

QByteArray UpdaterScriptRunTest::packNewBundle(bool executable) {
    if (!writeFile(path(QStringLiteral("new/") + appRelative), "new", executable) ||
        !writeFile(path(QStringLiteral("new/Nubra.app/Contents/Info.plist")), "1.4.0"))
        return {};
    QProcess zip;
    zip.setWorkingDirectory(path(QStringLiteral("new")));
    zip.start(QStringLiteral("zip"),
              {QStringLiteral("-q"), QStringLiteral("-r"), m_zipPath, QStringLiteral("Nubra.app")});
    if (!zip.waitForFinished(20000) || zip.exitCode() != 0)
        return {};
    QFile archive(m_zipPath);
    if (!archive.open(QIODevice::ReadOnly))
        return {};
    return QCryptographicHash::hash(archive.readAll(), QCryptographicHash::Sha256).toHex();
}

int UpdaterScriptRunTest::runScript(const QString& sha, const QStringList& environment) {
    const auto script = UpdaterScript::build(m_zipPath, QStringLiteral("1.4.0"), sha, m_errPath);
    if (!script || !writeFile(m_scriptPath, script->toUtf8()))
        return -1;

    return ScriptSandbox::runBash(m_sandbox, m_scriptPath, m_dir->path(), environment);
}

QStringList UpdaterScriptRunTest::leftoverFolders() const {
    return QDir(path(QStringLiteral("tmp")))
        .entryList({QStringLiteral("nubra-*")}, QDir::AllEntries | QDir::NoDotAndDotDot);
}

void UpdaterScriptRunTest::verifyRefused(int status, const QByteArray& reason) {
    QCOMPARE(status, 1);
    QCOMPARE(readFile(m_errPath), reason + '\n');
    QCOMPARE(readFile(path(QStringLiteral("Applications/") + appRelative)), QByteArray("old"));
    QCOMPARE(readFile(path(QStringLiteral("Applications/Nubra.app/Contents/Info.plist"))),
             QByteArray("1.3.0"));
    QVERIFY(!toolCalled(QStringLiteral("open")));
    QVERIFY(QFileInfo::exists(m_zipPath));
    QVERIFY(!QFileInfo::exists(m_scriptPath));
    QCOMPARE(leftoverFolders(), QStringList());
}

void UpdaterScriptRunTest::installsGoodArchive() {
    installOldBundle();
    const QByteArray sha = packNewBundle();
    QVERIFY(!sha.isEmpty());

    // Upper case with a trailing line break, as a manifest might send it.
    const int status = runScript(QString::fromLatin1(sha.toUpper()) + u'\n');

    QCOMPARE(status, 0);
    const QString installed = path(QStringLiteral("Applications/") + appRelative);
    QCOMPARE(readFile(installed), QByteArray("new"));
    QVERIFY(QFileInfo(installed).isExecutable());
    QCOMPARE(readFile(path(QStringLiteral("Applications/Nubra.app/Contents/Info.plist"))),
             QByteArray("1.4.0"));
    QCOMPARE(log(QStringLiteral("open")), QStringLiteral("/Applications/Nubra.app\n"));
    QCOMPARE(log(QStringLiteral("pgrep")), QStringLiteral("-f Nubra.app/Contents/MacOS\n"));
    QVERIFY(!toolCalled(QStringLiteral("sleep"))); // nothing to wait for
    QCOMPARE(log(QStringLiteral("shasum")), QStringLiteral("-a 256 ") + m_zipPath + u'\n');
    const QRegularExpression verified(
        QStringLiteral("^--verify --deep --strict /tmp/nubra-stage\\.[A-Za-z0-9]{6}/Nubra\\.app\n$"));
    QVERIFY2(verified.match(log(QStringLiteral("codesign"))).hasMatch(),
             qPrintable(log(QStringLiteral("codesign"))));
    QVERIFY(!toolCalled(QStringLiteral("hdiutil")));
    QCOMPARE(leftoverFolders(), QStringList());
    QVERIFY(!QFileInfo::exists(m_zipPath));
    QVERIFY(!QFileInfo::exists(m_scriptPath));
    QVERIFY(!QFileInfo::exists(m_errPath));
}

void UpdaterScriptRunTest::installsWhenNothingIsInstalled() {
    const QByteArray sha = packNewBundle();
    QVERIFY(!sha.isEmpty());

    QCOMPARE(runScript(QString::fromLatin1(sha)), 0);
    QCOMPARE(readFile(path(QStringLiteral("Applications/") + appRelative)), QByteArray("new"));
    QCOMPARE(log(QStringLiteral("open")), QStringLiteral("/Applications/Nubra.app\n"));
    QCOMPARE(leftoverFolders(), QStringList());
}

void UpdaterScriptRunTest::waitsForTheOldProcessToExit() {
    installOldBundle();
    const QByteArray sha = packNewBundle();
    QVERIFY(!sha.isEmpty());

    QCOMPARE(runScript(QString::fromLatin1(sha), {QStringLiteral("NUBRA_TEST_RUNNING_POLLS=3")}), 0);

    // Three answers of "still running", each followed by a 0.4 s pause, then one of "gone".
    QCOMPARE(log(QStringLiteral("pgrep")).count(u'\n'), 4);
    QCOMPARE(log(QStringLiteral("sleep")), QStringLiteral("0.4\n0.4\n0.4\n"));
    QCOMPARE(readFile(path(QStringLiteral("Applications/") + appRelative)), QByteArray("new"));
}

void UpdaterScriptRunTest::givesUpWaitingAfterThreeHundredPolls() {
    installOldBundle();
    const QByteArray sha = packNewBundle();
    QVERIFY(!sha.isEmpty());

    QCOMPARE(runScript(QString::fromLatin1(sha), {QStringLiteral("NUBRA_TEST_RUNNING_POLLS=100000"),
                                                  QStringLiteral("NUBRA_TEST_INSTANT_SLEEP=1")}),
             0);

    // The counter passes 300 on the 301st pause; the loop then leaves without asking again.
    QCOMPARE(log(QStringLiteral("pgrep")).count(u'\n'), 301);
    QCOMPARE(log(QStringLiteral("sleep")), QStringLiteral("0.4\n").repeated(301));
    QCOMPARE(readFile(path(QStringLiteral("Applications/") + appRelative)), QByteArray("new"));
}

void UpdaterScriptRunTest::keepsOldBundleOnChecksumMismatch() {
    installOldBundle();
    const QByteArray sha = packNewBundle();
    QVERIFY(!sha.isEmpty());
    const QString other =
        QString::fromLatin1(QCryptographicHash::hash("tampered", QCryptographicHash::Sha256).toHex());

    verifyRefused(runScript(other), "checksum mismatch");
    QVERIFY(!toolCalled(QStringLiteral("ditto"))); // nothing was unpacked
}

void UpdaterScriptRunTest::refusesIncompleteBundle() {
    installOldBundle();
    const QByteArray sha = packNewBundle(false);
    QVERIFY(!sha.isEmpty());

    verifyRefused(runScript(QString::fromLatin1(sha)), "extracted bundle incomplete");
    QVERIFY(!toolCalled(QStringLiteral("codesign")));
}

void UpdaterScriptRunTest::refusesBadSignature() {
    installOldBundle();
    const QByteArray sha = packNewBundle();
    QVERIFY(!sha.isEmpty());

    verifyRefused(runScript(QString::fromLatin1(sha), {QStringLiteral("NUBRA_TEST_CODESIGN_FAIL=1")}),
                  "codesign verify failed");
    QCOMPARE(log(QStringLiteral("ditto")).count(u'\n'), 1); // the unpacking only, no copy
}

void UpdaterScriptRunTest::restoresBackupWhenCopyFails() {
    installOldBundle();
    const QByteArray sha = packNewBundle();
    QVERIFY(!sha.isEmpty());

    verifyRefused(runScript(QString::fromLatin1(sha), {QStringLiteral("NUBRA_TEST_DITTO_FAIL=1")}),
                  "install failed");
    const QStringList dittoCalls = log(QStringLiteral("ditto")).split(u'\n', Qt::SkipEmptyParts);
    QCOMPARE(dittoCalls.size(), 2);
    QVERIFY(dittoCalls.at(1).endsWith(QStringLiteral("/Nubra.app /Applications/Nubra.app")));
}

QTEST_GUILESS_MAIN(UpdaterScriptRunTest)
#include "UpdaterScriptRun.moc"
