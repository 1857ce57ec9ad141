// Real runs of the install script of the user-local Linux installation (what its builder refuses is
// tst_updaterscript's) under bash in a bubblewrap sandbox whose /home and /tmp are private folders of
// the test, with a throwaway HOME holding ~/.local/opt/Nubra.

#include "NubraCore/Update/LinuxUpdaterScript.h"
#include "TestSupport/ScriptSandbox.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
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

const QStringList privateDirs = {u"tmp"_qs, u"home"_qs};

// The new and old bundles tell each other apart by the word they record and print when started; a
// healthy one reports that it is up when the install script asks it to.
QByteArray fakeNubra(const QByteArray& word, bool healthy = true) {
    return "#!/bin/sh\n{ printf '%s %s' " + word + " \"$0\"; printf ' [%s]' \"$@\"; echo; } >> " +
           "\"$NUBRA_TEST_LOG/launched\"\n" +
           (healthy ? "[ \"$1\" != --update-health ] || : > \"$2\"\n" : "") + "echo " + word + "\n";
}

// After logging its arguments (see ScriptSandbox::writeStandIn), mv fails the calls whose numbers
// NUBRA_TEST_MV_FAIL lists and runs the real mv otherwise.
const QByteArray mvTool = R"sh(CALL=$(wc -l < "$NUBRA_TEST_LOG/mv")
for N in $NUBRA_TEST_MV_FAIL; do [ "$N" != "$CALL" ] || exit 1; done
exec REAL_MV "$@"
)sh";

enum class Fault {
    wrongChecksum,
    versionSignedForOtherArchive,
    tamperedArchive,
    truncatedArchive,
    incompleteBundle,
    strayMember,
    climbingMember,
    backupFails,
    installFails,
    newVersionSilent,
};

} // namespace

class LinuxUpdaterScriptTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_keys;
    std::unique_ptr<QTemporaryDir> m_dir;
    LinuxUpdate m_update;
    QString m_scriptPath; // inside the sandbox

    // Paths outside the sandbox; inside, root/home is /home and root/tmp is /tmp.
    QString path(const QString& relative) const { return m_dir->filePath(relative); }
    QString installed(const QString& relative) const {
        return path(u"home/u/.local/opt/Nubra/"_qs + relative);
    }
    QString outside(const QString& sandboxPath) const { return m_dir->path() + sandboxPath; }

    static bool runTool(const QString& program, const QStringList& arguments) {
        QProcess process;
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(program, arguments);
        return process.waitForFinished(30000) && process.exitStatus() == QProcess::NormalExit &&
               process.exitCode() == 0;
    }

    static void writeBundle(const QString& folder, const QByteArray& word) {
        QVERIFY(writeFile(folder + u"/bin/nubra"_qs, fakeNubra(word), true));
        QVERIFY(writeFile(folder + u"/bin/nubra-glossd"_qs, "#!/bin/sh\n", true));
        QVERIFY(writeFile(folder + u"/lib/libNubraCore.so.1"_qs, word));
        QVERIFY(writeFile(folder + u"/share/icons/nubra.svg"_qs, word));
    }

    // Signs that the archive with `sha256` is `version`, with the release key.
    QString versionSignature(const QString& version, const QString& sha256) const {
        const QString statement = path(u"build/statement"_qs);
        if (!writeFile(statement, LinuxUpdaterScript::releaseStatement(version, sha256)))
            return {};
        return signatureOf(statement);
    }

    QString signatureOf(const QString& file) const {
        const QString signature = path(u"build/signature"_qs);
        if (!runTool(u"openssl"_qs, {u"pkeyutl"_qs, u"-sign"_qs, u"-inkey"_qs, m_keys.filePath(u"release"_qs),
                                     u"-rawin"_qs, u"-in"_qs, file, u"-out"_qs, signature}))
            return {};
        return QString::fromLatin1(readFile(signature).toBase64());
    }

    // Packs build/Nubra (plus `extra` members) into the archive and fills in its checksum and
    // signature; `tarOptions` go to tar before the archive name.
    void packRelease(const QStringList& extra = {}, const QStringList& tarOptions = {}) {
        const QString archive = outside(m_update.archivePath);
        QVERIFY(runTool(u"tar"_qs, QStringList(tarOptions) << u"-czf"_qs << archive << u"-C"_qs
                                                           << path(u"build"_qs) << u"Nubra"_qs << extra));
        setArchive(readFile(archive));
        m_update.signatureBase64 = signatureOf(archive);
        m_update.versionSignatureBase64 = versionSignature(m_update.version, *m_update.expectedSha256);
        QVERIFY(!m_update.signatureBase64.isEmpty() && !m_update.versionSignatureBase64.isEmpty());
    }

    // Writes the archive and announces its checksum, leaving the signature as it is.
    void setArchive(const QByteArray& bytes) {
        QVERIFY(writeFile(outside(m_update.archivePath), bytes));
        m_update.expectedSha256 =
            QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
    }

    // Writes the script for m_update into the sandbox's /tmp and runs it there; returns bash's status.
    int runScript(const QStringList& environment = {}, const QStringList& arguments = {}) {
        const auto script = LinuxUpdaterScript::build(m_update);
        if (!script || !writeFile(outside(m_scriptPath), script->toUtf8()))
            return -1;
        return ScriptSandbox::runBash(ScriptSandbox::arguments(m_dir->path(), privateDirs), m_scriptPath,
                                      m_dir->path(), QStringList{u"HOME=/home/u"_qs} + environment,
                                      arguments);
    }

    QStringList leftovers() const {
        return QDir(path(u"home/u/.local/opt"_qs))
            .entryList({u".nubra-*"_qs}, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }

private slots:
    void initTestCase() {
        QVERIFY(m_keys.isValid());
        const QString unavailable = ScriptSandbox::unavailableReason(privateDirs);
        if (!unavailable.isEmpty())
            QSKIP(qPrintable(unavailable));
        for (const char* tool : {"bash", "tar", "openssl", "sha256sum", "base64", "setsid", "nohup"})
            QVERIFY2(!QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty(), tool);
        QVERIFY(runTool(u"openssl"_qs, {u"genpkey"_qs, u"-algorithm"_qs, u"ed25519"_qs, u"-out"_qs,
                                        m_keys.filePath(u"release"_qs)}));
        QVERIFY(runTool(u"openssl"_qs, {u"pkey"_qs, u"-in"_qs, m_keys.filePath(u"release"_qs), u"-pubout"_qs,
                                        u"-out"_qs, m_keys.filePath(u"pub"_qs)}));
    }

    void init() {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        for (const char* sub : {"tmp", "home/u/.local/opt", "log", "build"})
            QVERIFY(QDir(m_dir->path()).mkpath(QString::fromLatin1(sub)));
        QByteArray mv = mvTool;
        mv.replace("REAL_MV", QStandardPaths::findExecutable(u"mv"_qs).toUtf8());
        QVERIFY(ScriptSandbox::writeStandIn(m_dir->path(), u"mv"_qs, mv));
        // The wait for the old process costs no time; the new one is given a moment to report.
        QVERIFY(ScriptSandbox::writeStandIn(m_dir->path(), u"sleep"_qs,
                                            "[ \"$1\" != 0.5 ] || exec /usr/bin/sleep 0.05\n"));

        QProcess gone; // a process id nobody answers to any more
        gone.start(u"true"_qs, {});
        QVERIFY(gone.waitForStarted());
        const qint64 gonePid = gone.processId();
        QVERIFY(gone.waitForFinished());

        const QString uuid = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
        m_update = LinuxUpdate{};
        m_update.archivePath = u"/tmp/Nubra-1.4.0-"_qs + uuid + u".tar.gz"_qs;
        m_update.version = u"1.4.0"_qs;
        m_update.currentVersion = u"1.3.0"_qs;
        m_update.errPath = u"/tmp/nubra-update-"_qs + uuid + u"-1.err"_qs;
        m_update.installDir = u"/home/u/.local/opt/Nubra"_qs; // as the sandbox sees it
        m_update.pid = gonePid;
        m_update.publicKeyPem = QString::fromLatin1(readFile(m_keys.filePath(u"pub"_qs)));
        m_update.waitPolls = 3;
        m_scriptPath = u"/tmp/nubra-update-"_qs + uuid + u"-2.sh"_qs;
        writeBundle(installed(QString()), "old");
        writeBundle(path(u"build/Nubra"_qs), "new");
    }

    void cleanup() { m_dir.reset(); }

    void installsAndRelaunches() {
        packRelease();
        // As a manifest or release tool may hand them over: upper case with a line break, the signature
        // wrapped like base64's default output, the key with CRLF line ends.
        m_update.expectedSha256 = m_update.expectedSha256->toUpper() + u'\n';
        m_update.signatureBase64.insert(76, u'\n');
        m_update.publicKeyPem.replace(u"\n"_qs, u"\r\n"_qs);
        m_update.installDir += u'/';
        m_update.relaunchArguments = {u"--updated"_qs, u"from 1.3.0 & more"_qs};

        // Checked first while the old version still runs: nothing changes, the script stays for the run.
        QCOMPARE(runScript({}, {u"--check"_qs}), 0);
        QCOMPARE(readFile(installed(u"lib/libNubraCore.so.1"_qs)), QByteArray("old"));
        QVERIFY(QFileInfo::exists(outside(m_scriptPath)));
        QCOMPARE(leftovers(), QStringList());

        QCOMPARE(runScript(), 0);

        // Started to report that it is up, then the old version went.
        QTRY_VERIFY_WITH_TIMEOUT(
            QRegularExpression(u"^new /home/u/.local/opt/Nubra/bin/nubra \\[--update-health\\] "
                               "\\[/home/u/.local/opt/.nubra-old.\\w+/healthy\\] "
                               "\\[--updated\\] \\[from 1.3.0 & more\\]\n$"_qs)
                .match(QString::fromUtf8(readFile(path(u"log/launched"_qs))))
                .hasMatch(),
            10000);
        QCOMPARE(readFile(installed(u"lib/libNubraCore.so.1"_qs)), QByteArray("new"));
        QVERIFY(QFileInfo(installed(u"bin/nubra-glossd"_qs)).isExecutable());
        QCOMPARE(leftovers(), QStringList());
        QVERIFY(!QFileInfo::exists(outside(m_update.archivePath)));
        QVERIFY(!QFileInfo::exists(outside(m_scriptPath)));
        QVERIFY(!QFileInfo::exists(outside(m_update.errPath)));
    }

    void keepsOldVersionOnFailure_data() {
        QTest::addColumn<Fault>("fault");
        QTest::addColumn<QByteArray>("reason");
        QTest::newRow("wrong checksum") << Fault::wrongChecksum << QByteArray("checksum mismatch");
        QTest::newRow("an older archive announced as this version")
            << Fault::versionSignedForOtherArchive << QByteArray("version signature verify failed");
        QTest::newRow("tampered archive, checksum of the tampered bytes")
            << Fault::tamperedArchive << QByteArray("signature verify failed");
        QTest::newRow("truncated archive, checksummed and signed")
            << Fault::truncatedArchive << QByteArray("unpack failed");
        QTest::newRow("bundle without the service")
            << Fault::incompleteBundle << QByteArray("extracted bundle incomplete");
        QTest::newRow("member beside the bundle folder")
            << Fault::strayMember << QByteArray("unsafe archive");
        QTest::newRow("member climbing out with ..") << Fault::climbingMember << QByteArray("unsafe archive");
        QTest::newRow("backup move fails") << Fault::backupFails << QByteArray("backup failed");
        QTest::newRow("install move fails") << Fault::installFails << QByteArray("install failed");
        QTest::newRow("new version never says it is up")
            << Fault::newVersionSilent << QByteArray("the new version did not start");
    }

    // Every refusal leaves its reason in the note, the old version installed and runnable, the archive
    // kept, no script and no staging or backup folder. A failure after the old process has gone starts
    // it again, pointed at the note.
    void keepsOldVersionOnFailure() {
        QFETCH(Fault, fault);
        QFETCH(QByteArray, reason);
        if (fault == Fault::incompleteBundle)
            QVERIFY(QFile::remove(path(u"build/Nubra/bin/nubra-glossd"_qs)));
        if (fault == Fault::newVersionSilent) {
            QVERIFY(writeFile(path(u"build/Nubra/bin/nubra"_qs), fakeNubra("new", false), true));
            m_update.healthPolls = 4;
        }
        QVERIFY(writeFile(path(u"build/stray"_qs), "stray"));
        const QString archive = outside(m_update.archivePath);
        if (fault == Fault::strayMember)
            packRelease({u"stray"_qs});
        else if (fault == Fault::climbingMember)
            packRelease({u"Nubra/../stray"_qs}, {u"-P"_qs});
        else
            packRelease();
        QByteArray packed = readFile(archive);
        QStringList environment;
        if (fault == Fault::wrongChecksum)
            m_update.expectedSha256 =
                QString::fromLatin1(QCryptographicHash::hash("other", QCryptographicHash::Sha256).toHex());
        if (fault == Fault::versionSignedForOtherArchive) // as an attacker holding an old release would
            m_update.versionSignatureBase64 = versionSignature(
                m_update.version,
                QString::fromLatin1(QCryptographicHash::hash("1.0.0", QCryptographicHash::Sha256).toHex()));
        if (fault == Fault::tamperedArchive) {
            packed[packed.size() / 2] = char(packed.at(packed.size() / 2) ^ 0x01);
            setArchive(packed);
        }
        if (fault == Fault::truncatedArchive) {
            setArchive(packed.first(packed.size() / 2));
            m_update.signatureBase64 = signatureOf(archive);
            m_update.versionSignatureBase64 = versionSignature(m_update.version, *m_update.expectedSha256);
        }
        if (fault == Fault::backupFails)
            environment << u"NUBRA_TEST_MV_FAIL=1"_qs;
        if (fault == Fault::installFails)
            environment << u"NUBRA_TEST_MV_FAIL=2"_qs;

        QCOMPARE(runScript(environment), 1);

        QCOMPARE(readFile(outside(m_update.errPath)), reason + '\n');
        QVERIFY(QFileInfo::exists(archive));
        QVERIFY(!QFileInfo::exists(outside(m_scriptPath)));
        QCOMPARE(leftovers(), QStringList());
        if (fault >= Fault::truncatedArchive)
            QTRY_VERIFY_WITH_TIMEOUT(
                readFile(path(u"log/launched"_qs))
                    .endsWith(u"old /home/u/.local/opt/Nubra/bin/nubra [--update-failed] [%1]\n"_qs
                                  .arg(m_update.errPath)
                                  .toUtf8()),
                10000);
        else
            QVERIFY(!QFileInfo::exists(path(u"log/launched"_qs)));
        QProcess old;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"NUBRA_TEST_LOG"_qs, path(u"log"_qs));
        old.setProcessEnvironment(env);
        old.start(installed(u"bin/nubra"_qs), {});
        QVERIFY(old.waitForFinished(10000));
        QCOMPARE(old.readAllStandardOutput(), QByteArray("old\n"));
        QVERIFY(QFileInfo(installed(u"bin/nubra-glossd"_qs)).isExecutable());
        QCOMPARE(readFile(installed(u"lib/libNubraCore.so.1"_qs)), QByteArray("old"));
    }

    void keepsBackupWhenRestoreFails() {
        packRelease();

        // The new folder cannot be moved in and the old one cannot be moved back: the backup must survive.
        QCOMPARE(runScript({u"NUBRA_TEST_MV_FAIL=2 3"_qs}), 1);

        const QStringList kept = leftovers();
        QCOMPARE(kept.size(), 1);
        QVERIFY2(kept.first().startsWith(u".nubra-old."_qs), qPrintable(kept.first()));
        const QString backup = u"/home/u/.local/opt/"_qs + kept.first() + u"/Nubra"_qs;
        QCOMPARE(readFile(outside(m_update.errPath)),
                 u"install failed, the previous version is kept in %1\n"_qs.arg(backup).toUtf8());
        QCOMPARE(readFile(outside(backup + u"/lib/libNubraCore.so.1"_qs)), QByteArray("old"));
        QVERIFY(!QFileInfo::exists(outside(m_scriptPath)));
    }

    void stopsWaitingAfterTheLastPoll() {
        packRelease();
        m_update.pid = QCoreApplication::applicationPid(); // never ends while the script runs

        QCOMPARE(runScript(), 0);

        QCOMPARE(ScriptSandbox::standInLog(m_dir->path(), u"sleep"_qs).count(u"0.4\n"_qs), 3);
        QCOMPARE(readFile(installed(u"lib/libNubraCore.so.1"_qs)), QByteArray("new"));
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(path(u"log/launched"_qs)), 10000);
    }
};

QTEST_GUILESS_MAIN(LinuxUpdaterScriptTest)
#include "tst_linuxupdaterscript.moc"
