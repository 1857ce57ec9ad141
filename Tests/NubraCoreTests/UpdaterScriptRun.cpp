// Runs generated install scripts for real: bash executes them inside a bubblewrap sandbox whose
// /Applications and /tmp are private directories of the test, with stand-ins for the macOS tools.
// What both scripts refuse alike (a checksum that does not match) is run in tst_linuxupdaterscript;
// the exact checksum line is tst_updaterscript's.

#include "NubraCore/Update/UpdaterScript.h"
#include "TestSupport/ScriptSandbox.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>

#include <memory>

using ScriptSandbox::readFile;
using ScriptSandbox::writeFile;

namespace {

// What each stand-in does after logging its arguments (see ScriptSandbox::writeStandIn).
const std::pair<const char*, const char*> standIns[] = {
    {"shasum", "[ \"$1\" = \"-a\" ] && [ \"$2\" = \"256\" ] || exit 2\nexec sha256sum \"$3\"\n"},
    {"ditto",
     "if [ \"$1\" = \"-x\" ]; then\n    [ \"$2\" = \"-k\" ] || exit 2\n    exec unzip -q \"$3\" -d \"$4\"\n"
     "fi\n[ -z \"$NUBRA_TEST_DITTO_FAIL\" ] || exit 1\nexec cp -a \"$1\" \"$2\"\n"},
    {"codesign", "[ -z \"$NUBRA_TEST_CODESIGN_FAIL\" ]\n"},
    {"open", ""},
    {"hdiutil", "exit 1\n"},
    // Reports the old process as running for the first NUBRA_TEST_RUNNING_POLLS calls, then as gone;
    // counts its calls in bash itself, without one more process for each of up to 301 polls.
    {"pgrep", "mapfile -t CALLS < \"$NUBRA_TEST_LOG/pgrep\"\n[ ${#CALLS[@]} -le "
              "\"${NUBRA_TEST_RUNNING_POLLS:-0}\" ]\n"},
    // Returns at once, so waiting out the two-minute give-up costs no time.
    {"sleep", ""},
};

const QString appRelative = u"Nubra.app/Contents/MacOS/Nubra"_qs;
const QStringList privateDirs = {u"tmp"_qs, u"Applications"_qs};

} // namespace

class UpdaterScriptRunTest : public QObject {
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_zipPath;
    QString m_scriptPath;
    QString m_errPath;

    QString path(const QString& relative) const { return m_dir->filePath(relative); }
    QString log(const char* tool) const {
        return ScriptSandbox::standInLog(m_dir->path(), QString::fromLatin1(tool));
    }

    void installOldBundle() {
        QVERIFY(writeFile(path(u"Applications/"_qs + appRelative), "old", true));
        QVERIFY(writeFile(path(u"Applications/Nubra.app/Contents/Info.plist"_qs), "1.3.0"));
    }

    // Zips a new bundle into the archive the script is told to install; returns its SHA-256 in hex.
    QByteArray packNewBundle(bool executable = true) {
        if (!writeFile(path(u"new/"_qs + appRelative), "new", executable) ||
            !writeFile(path(u"new/Nubra.app/Contents/Info.plist"_qs), "1.4.0"))
            return {};
        QProcess zip;
        zip.setWorkingDirectory(path(u"new"_qs));
        zip.start(u"zip"_qs, {u"-q"_qs, u"-r"_qs, m_zipPath, u"Nubra.app"_qs});
        if (!zip.waitForFinished(20000) || zip.exitCode() != 0)
            return {};
        return QCryptographicHash::hash(readFile(m_zipPath), QCryptographicHash::Sha256).toHex();
    }

    // Generates the script for `sha` and runs it to the end inside the sandbox; returns bash's status.
    int runScript(const QString& sha, const QStringList& environment) {
        const auto script = UpdaterScript::build(m_zipPath, u"1.4.0"_qs, sha, m_errPath);
        if (!script || !writeFile(m_scriptPath, script->toUtf8()))
            return -1;
        return ScriptSandbox::runBash(ScriptSandbox::arguments(m_dir->path(), privateDirs), m_scriptPath,
                                      m_dir->path(), environment);
    }

    QStringList leftoverFolders() const {
        return QDir(path(u"tmp"_qs)).entryList({u"nubra-*"_qs}, QDir::AllEntries | QDir::NoDotAndDotDot);
    }

private slots:
    void initTestCase() {
        for (const char* tool : {"bash", "zip", "unzip", "sha256sum", "awk", "mktemp"})
            QVERIFY2(!QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty(), tool);
        const QString unavailable = ScriptSandbox::unavailableReason(privateDirs);
        if (!unavailable.isEmpty())
            QSKIP(qPrintable(unavailable));
    }

    void init() {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        for (const char* sub : {"tmp", "Applications", "log", "work", "new"})
            QVERIFY(QDir(m_dir->path()).mkpath(QString::fromLatin1(sub)));
        for (const auto& [name, body] : standIns)
            QVERIFY(ScriptSandbox::writeStandIn(m_dir->path(), QString::fromLatin1(name), body));
        const QString uuid = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
        m_zipPath = path(u"work/Nubra-1.4.0-"_qs + uuid + u".app.zip"_qs);
        m_scriptPath = path(u"work/nubra-update-"_qs + uuid + u".sh"_qs);
        m_errPath = path(u"work/nubra-update-"_qs + uuid + u".err"_qs);
    }

    void cleanup() { m_dir.reset(); }

    void installs_data() {
        QTest::addColumn<bool>("oldInstalled");
        QTest::addColumn<int>("runningPolls"); // how often the old process is still reported as running
        QTest::addColumn<int>("pgrepCalls");
        QTest::addColumn<int>("pauses");
        QTest::newRow("replacing the old bundle") << true << 0 << 1 << 0;
        QTest::newRow("nothing installed before") << false << 0 << 1 << 0;
        QTest::newRow("waits for the old process to exit") << true << 3 << 4 << 3;
        // The counter passes 300 on the 301st pause; the loop then leaves without asking again.
        QTest::newRow("gives up waiting after 300 polls") << true << 100000 << 301 << 301;
    }

    void installs() {
        QFETCH(bool, oldInstalled);
        QFETCH(int, runningPolls);
        QFETCH(int, pgrepCalls);
        QFETCH(int, pauses);
        if (oldInstalled)
            installOldBundle();
        const QByteArray sha = packNewBundle();
        QVERIFY(!sha.isEmpty());

        // Upper case with a trailing line break, as a manifest might send it.
        QCOMPARE(runScript(QString::fromLatin1(sha.toUpper()) + u'\n',
                           {u"NUBRA_TEST_RUNNING_POLLS=%1"_qs.arg(runningPolls)}),
                 0);

        const QString installed = path(u"Applications/"_qs + appRelative);
        QCOMPARE(readFile(installed), QByteArray("new"));
        QVERIFY(QFileInfo(installed).isExecutable());
        QCOMPARE(readFile(path(u"Applications/Nubra.app/Contents/Info.plist"_qs)), QByteArray("1.4.0"));
        QCOMPARE(log("open"), u"/Applications/Nubra.app\n"_qs);
        QCOMPARE(log("pgrep"), u"-f Nubra.app/Contents/MacOS\n"_qs.repeated(pgrepCalls));
        QCOMPARE(log("sleep"), u"0.4\n"_qs.repeated(pauses));
        QCOMPARE(log("shasum"), u"-a 256 "_qs + m_zipPath + u'\n');
        const QRegularExpression verified(
            u"^--verify --deep --strict /tmp/nubra-stage\\.[A-Za-z0-9]{6}/Nubra\\.app\n$"_qs);
        QVERIFY2(verified.match(log("codesign")).hasMatch(), qPrintable(log("codesign")));
        QCOMPARE(log("hdiutil"), QString());
        QCOMPARE(leftoverFolders(), QStringList());
        QVERIFY(!QFileInfo::exists(m_zipPath));
        QVERIFY(!QFileInfo::exists(m_scriptPath));
        QVERIFY(!QFileInfo::exists(m_errPath));
    }

    void refusesAndKeepsTheOldBundle_data() {
        QTest::addColumn<QString>("archiveSuffix");
        QTest::addColumn<bool>("bundleComplete");
        QTest::addColumn<QString>("environment");
        QTest::addColumn<QByteArray>("reason");
        QTest::addColumn<QStringList>("dittoCalls"); // a part of each call of ditto, in order
        const QString zip = u".app.zip"_qs;
        const QStringList unpackOnly{u"/tmp/nubra-stage."_qs};
        QTest::newRow("incomplete bundle")
            << zip << false << QString() << QByteArray("extracted bundle incomplete") << unpackOnly;
        QTest::newRow("bad signature") << zip << true << u"NUBRA_TEST_CODESIGN_FAIL=1"_qs
                                       << QByteArray("codesign verify failed") << unpackOnly;
        QTest::newRow("copy fails, backup restored")
            << zip << true << u"NUBRA_TEST_DITTO_FAIL=1"_qs << QByteArray("install failed")
            << (unpackOnly + QStringList{u"/Nubra.app /Applications/Nubra.app"_qs});
        QTest::newRow("disk image that does not attach")
            << u".dmg"_qs << true << QString() << QByteArray("dmg attach failed") << QStringList();
    }

    void refusesAndKeepsTheOldBundle() {
        QFETCH(QString, archiveSuffix);
        QFETCH(bool, bundleComplete);
        QFETCH(QString, environment);
        QFETCH(QByteArray, reason);
        QFETCH(QStringList, dittoCalls);
        m_zipPath.replace(u".app.zip"_qs, archiveSuffix);
        installOldBundle();
        const QByteArray sha = packNewBundle(bundleComplete);
        QVERIFY(!sha.isEmpty());

        QCOMPARE(runScript(QString::fromLatin1(sha),
                           environment.isEmpty() ? QStringList() : QStringList{environment}),
                 1);

        QCOMPARE(readFile(m_errPath), reason + '\n');
        QCOMPARE(readFile(path(u"Applications/"_qs + appRelative)), QByteArray("old"));
        QCOMPARE(readFile(path(u"Applications/Nubra.app/Contents/Info.plist"_qs)), QByteArray("1.3.0"));
        QCOMPARE(log("open"), QString());
        QVERIFY(QFileInfo::exists(m_zipPath));
        QVERIFY(!QFileInfo::exists(m_scriptPath));
        QCOMPARE(leftoverFolders(), QStringList());
        const QStringList calls = log("ditto").split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(calls.size(), dittoCalls.size());
        for (qsizetype i = 0; i < calls.size(); ++i)
            QVERIFY2(calls[i].contains(dittoCalls[i]), qPrintable(calls[i]));
    }
};

QTEST_GUILESS_MAIN(UpdaterScriptRunTest)
#include "UpdaterScriptRun.moc"
