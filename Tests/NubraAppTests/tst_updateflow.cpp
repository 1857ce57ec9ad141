#include "NubraApp/Shell/NubraWindows.h"
#include "NubraApp/Update/UpdateFlow.h"
#include "NubraCore/Update/LinuxUpdaterScript.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "TestSupport/DebugLogCapture.h"
#include "TestSupport/LocalHttpServer.h"

#include <QApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <mutex>

using namespace Qt::StringLiterals;
using Response = LocalHttpServer::Response;
Q_DECLARE_METATYPE(LocalHttpServer::Response)

namespace {

const QByteArray archiveBytes = QByteArray("a release archive, ").repeated(2000);

QString sha256(const QByteArray& bytes) {
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
}

bool openssl(const QStringList& arguments) {
    QProcess tool;
    tool.start(u"openssl"_s, arguments);
    return tool.waitForFinished(30000) && tool.exitStatus() == QProcess::NormalExit && tool.exitCode() == 0;
}

QList<QWidget*> visibleNamed(const QString& name) {
    QList<QWidget*> found;
    for (QWidget* widget : QApplication::topLevelWidgets())
        if (widget->objectName() == name && widget->isVisible())
            found << widget;
    return found;
}

QMessageBox* openAlert(const QString& name) {
    const QList<QWidget*> found = visibleNamed(name);
    return found.size() == 1 ? qobject_cast<QMessageBox*>(found.first()) : nullptr;
}

QLabel* noticeText() {
    const QList<QWidget*> panels = visibleNamed(u"updateNoticePanel"_s);
    return panels.size() == 1 ? panels.first()->findChild<QLabel*>(u"updateNoticeText"_s) : nullptr;
}

QStringList downloadedArchives(const QString& folder) {
    return QDir(folder).entryList({u"Nubra-*.tar.gz"_s}, QDir::Files);
}

} // namespace

// The update flow against a release service on loopback: what a check shows, the offer, the
// download and the hand-over to the install script.
class UpdateFlowTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        QVERIFY(m_temp.isValid() && m_keys.isValid());
        qputenv("TMPDIR", m_temp.path().toLocal8Bit());
        for (const QString& key : {u"release"_s, u"other"_s})
            QVERIFY(openssl({u"genpkey"_s, u"-algorithm"_s, u"ed25519"_s, u"-out"_s, m_keys.filePath(key)}));
        QVERIFY(openssl({u"pkey"_s, u"-in"_s, m_keys.filePath(u"release"_s), u"-pubout"_s, u"-out"_s,
                         m_keys.filePath(u"release.pub"_s)}));
        QFile pem(m_keys.filePath(u"release.pub"_s));
        QVERIFY(pem.open(QIODevice::ReadOnly));
        m_publicKeyPem = QString::fromLatin1(pem.readAll());
        // The install script stages next to the installation.
        QVERIFY(QDir(m_keys.path()).mkpath(u"opt"_s));
        m_server.route("GET", "/v1/updates/latest", [this](const LocalHttpServer::Request&) {
            const std::lock_guard lock(m_mutex);
            return m_manifest;
        });
        m_server.route("GET", "/releases/Nubra.tar.gz", [this](const LocalHttpServer::Request&) {
            const std::lock_guard lock(m_mutex);
            return m_archive;
        });
        QVERIFY(m_server.start());
    }

    void init() {
        L10n::setOverride(u"en"_s);
        serveRelease(u"1.2.0"_s, {});
        serveArchive(Response::whole(200, archiveBytes, "application/gzip"));
        m_launched.clear();
        // A failed install keeps its archive, as it would for the user to look into.
        for (const QString& name : QDir(m_temp.path()).entryList(QDir::Files))
            QVERIFY(QFile::remove(m_temp.filePath(name)));
    }

    void cleanup() {
        for (QWidget* widget : QApplication::topLevelWidgets())
            delete widget;
        L10n::setOverride(std::nullopt);
    }

    void aCheckTheUserAskedForAlwaysAnswers() {
        UpdateFlow flow(environment());
        connect(&flow, &UpdateFlow::noticeRequested, this, &NubraWindows::showUpdateNotice);
        DebugLogCapture log;
        const auto checked = [&log](int count) {
            return log.messages().filter(u"updater: result="_s).size() == count;
        };

        // Checks at launch keep quiet about everything but a release to install.
        serve(Response::whole(200, R"({"ok":true,"data":{"available":false}})"));
        flow.checkForUpdate(false);
        serve(Response::whole(500, "{}"));
        flow.checkForUpdate(false);
        QTRY_VERIFY(checked(2));
        QVERIFY(!NubraWindows::updateNoticePanel());

        serve(Response::whole(200, R"({"ok":true,"data":{"available":true,"version":"0.9"}})"));
        flow.checkForUpdate(true);
        QTRY_VERIFY(noticeText());
        QCOMPARE(noticeText()->text(), u"You're up to date! Nubra 1.0.0 is the latest."_s);
        const QColor plain = noticeText()->palette().color(QPalette::WindowText);

        // A second check replaces the notice; a failure is written in red.
        QPointer<QWidget> first = NubraWindows::updateNoticePanel();
        L10n::setOverride(u"zh"_s);
        serve(Response::whole(503, "unavailable", "text/plain"));
        flow.checkForUpdate(true);
        QTRY_VERIFY(first.isNull());
        QTRY_VERIFY(noticeText());
        QCOMPARE(noticeText()->text(), u"无法连接更新服务。"_s);
        QVERIFY(noticeText()->palette().color(QPalette::WindowText) != plain);
        QVERIFY(!openAlert(u"updateAvailableAlert"_s));
    }

    // The offer, its version and its Download & Install button are seen on the desktop (update_desktop).
    void aNewerReleaseIsOffered() {
        UpdateFlow flow(environment());
        flow.checkForUpdate(false);
        QTRY_VERIFY(openAlert(u"updateAvailableAlert"_s));
        QPointer<QMessageBox> offer = openAlert(u"updateAvailableAlert"_s);
        QCOMPARE(offer->informativeText(), u"1.2.0\n\nDownload and install now?"_s);

        // Checked again, the same release comes with its notes, in one alert.
        serveRelease(u"1.2.0"_s, u"{\"en\":\"Faster lookups\",\"zh\":\"查词更快\"}"_s);
        flow.checkForUpdate(true);
        QTRY_VERIFY(offer.isNull() || !offer->isVisible());
        QTRY_VERIFY(openAlert(u"updateAvailableAlert"_s));
        QCOMPARE(openAlert(u"updateAvailableAlert"_s)->informativeText(), u"1.2.0\n\nFaster lookups"_s);

        // "Later" leaves everything as it was.
        QSignalSpy activity(&flow, &UpdateFlow::activityChanged);
        openAlert(u"updateAvailableAlert"_s)
            ->findChild<QPushButton*>(u"updateAvailableAlertLaterButton"_s)
            ->click();
        QTRY_VERIFY(!openAlert(u"updateAvailableAlert"_s));
        QVERIFY(activity.isEmpty());
        QVERIFY(downloadedArchives(m_temp.path()).isEmpty());
    }

    void anInstallationThatCannotReplaceItselfSaysWhy() {
        UpdateFlow::Environment packaged = environment();
        packaged.installation = {Installation::Kind::packageManaged, {}};
        UpdateFlow flow(packaged);
        flow.checkForUpdate(true);
        QTRY_VERIFY(openAlert(u"updateAvailableAlert"_s));
        QMessageBox* offer = openAlert(u"updateAvailableAlert"_s);
        QVERIFY(offer->informativeText().contains(u"sudo apt update"_s));
        QCOMPARE(offer->buttons().size(), 1);
        QVERIFY(!offer->findChild<QPushButton*>(u"updateAvailableAlertInstallButton"_s));
    }

    // What the script does with the archive is seen on the desktop (update_desktop), and in
    // NubraCoreTests; here, that it gets the archive and Nubra steps aside for it.
    void aGoodDownloadIsHandedToTheInstallScript() {
        UpdateFlow flow(environment());
        QSignalSpy activity(&flow, &UpdateFlow::activityChanged);
        QSignalSpy quit(&flow, &UpdateFlow::quitRequested);
        install(flow);
        QTRY_COMPARE(quit.size(), 1);

        QCOMPARE(m_launched.size(), 2);
        QCOMPARE(m_launched.first(), u"/bin/bash"_s);
        QFile script(m_launched.last());
        QVERIFY(script.open(QIODevice::ReadOnly));
        const QStringList archives = downloadedArchives(m_temp.path());
        QCOMPARE(archives.size(), 1);
        QVERIFY(script.readAll().contains(QFile::encodeName(m_temp.filePath(archives.first()))));

        // The tray followed the download and was told when it ended.
        QVERIFY(activity.size() >= 2);
        QVERIFY(activity.first().first().toString().startsWith(u"Downloading Nubra 1.2.0…"_s));
        QCOMPARE(activity.last().first().toString(), QString());
    }

    void aFailedDownloadOrInstallKeepsNubraRunning_data() {
        QTest::addColumn<Response>("archive");
        QTest::addColumn<QString>("checksum");
        QTest::addColumn<QString>("signature");
        QTest::addColumn<QString>("versionSignature");
        QTest::addColumn<bool>("launches");
        QTest::addColumn<QString>("alert");
        QTest::addColumn<QString>("message");
        const QString good = sha256(archiveBytes);
        const QString signature = sign(archiveBytes);
        const QString versionSignature = signedVersion(u"1.2.0"_s, good);
        const Response served = Response::whole(200, archiveBytes, "application/gzip");
        QTest::newRow("not found") << Response::whole(404, "missing", "text/plain") << good << signature
                                   << versionSignature << true << u"updateFailedAlert"_s
                                   << u"The download server answered HTTP 404."_s;
        QTest::newRow("other bytes") << Response::whole(200, "not the release", "application/gzip") << good
                                     << signature << versionSignature << true << u"updateFailedAlert"_s
                                     << u"The download does not match the release's checksum."_s;
        QTest::newRow("cut off") << Response{200,
                                             {},
                                             "application/gzip",
                                             {{archiveBytes.left(100)}},
                                             LocalHttpServer::Ending::drop,
                                             true}
                                 << good << signature << versionSignature << true << u"updateFailedAlert"_s
                                 << QString();
        QTest::newRow("short checksum")
            << served << good.left(63) << signature << versionSignature << true << u"updateBlockedAlert"_s
            << u"The release manifest is missing its SHA-256 checksum. The update was not installed."_s;
        QTest::newRow("archive signed with another key")
            << served << good << sign(archiveBytes, u"other"_s) << versionSignature << true
            << u"updateBlockedAlert"_s
            << u"The downloaded release is not signed with Nubra's release key. The update was not installed."_s;
        QTest::newRow("an older release announced as this version")
            << served << good << signature << signedVersion(u"1.2.0"_s, sha256("1.0.0's archive")) << true
            << u"updateBlockedAlert"_s
            << u"The release's version is not signed with Nubra's release key, so it could be an older "
               "release. The update was not installed."_s;
        QTest::newRow("manifest without the signed version")
            << served << good << signature << QString() << true << u"updateBlockedAlert"_s
            << u"The release manifest does not carry the signed version this Nubra requires, so the "
               "release could be an older one. The update was not installed."_s;
        QTest::newRow("script not started") << served << good.toUpper() << signature << versionSignature
                                            << false << u"updateFailedAlert"_s << u"no bash here"_s;
    }
    void aFailedDownloadOrInstallKeepsNubraRunning() {
        QFETCH(Response, archive);
        QFETCH(QString, checksum);
        QFETCH(QString, signature);
        QFETCH(QString, versionSignature);
        QFETCH(bool, launches);
        QFETCH(QString, alert);
        QFETCH(QString, message);
        serveArchive(archive);
        serveRelease(u"1.2.0"_s, {}, checksum, signature, versionSignature);
        UpdateFlow::Environment failing = environment();
        if (!launches)
            failing.launch = [](const QString&, const QStringList&, QString* error) {
                *error = u"no bash here"_s;
                return false;
            };
        UpdateFlow flow(failing);
        QSignalSpy quit(&flow, &UpdateFlow::quitRequested);
        install(flow);
        QTRY_VERIFY_WITH_TIMEOUT(openAlert(alert), 15000);
        if (!message.isEmpty())
            QCOMPARE(openAlert(alert)->informativeText(), message);
        QCOMPARE(openAlert(alert)->text(),
                 alert == u"updateBlockedAlert" ? u"Update blocked"_s : u"Update failed"_s);
        QVERIFY(quit.isEmpty());
        QVERIFY(!flow.isDownloading());
        QCOMPARE(QDir(m_temp.path()).entryList({u"nubra-update-*"_s}, QDir::Files), QStringList());
    }

    // Started again by the install script after it failed: the reason once, from the installer's note.
    void aFailedInstallIsReportedOnce() {
        UpdateFlow flow(environment());
        const QString note = m_temp.filePath(u"nubra-update-1234.err"_s);
        QFile file(note);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("unpack failed\x1b]0;title\x07\nsecond line\n");
        file.close();
        QFile outside(m_keys.filePath(u"nubra-update-5678.err"_s));
        QVERIFY(outside.open(QIODevice::WriteOnly));
        outside.close();

        flow.reportFailedInstall(outside.fileName());
        QVERIFY(!openAlert(u"updateFailedAlert"_s));
        QVERIFY(outside.exists());
        flow.reportFailedInstall(note);
        QVERIFY(openAlert(u"updateFailedAlert"_s));
        QCOMPARE(
            openAlert(u"updateFailedAlert"_s)->informativeText(),
            u"The update could not be installed (unpack failed]0;title). Nubra 1.0.0 is still installed."_s);
        QVERIFY(!QFileInfo::exists(note));
    }

    void aDownloadCanBeCancelled() {
        serveArchive(Response::streamed({archiveBytes.left(1000)}, LocalHttpServer::Ending::holdOpen));
        UpdateFlow flow(environment());
        QSignalSpy activity(&flow, &UpdateFlow::activityChanged);
        install(flow);
        QTRY_VERIFY(activity.size() >= 2); // started, then the first bytes
        flow.cancelDownload();
        QCOMPARE(activity.last().first().toString(), QString());
        QVERIFY(!flow.isDownloading());
        QVERIFY(downloadedArchives(m_temp.path()).isEmpty());
        QVERIFY(!openAlert(u"updateFailedAlert"_s));
    }

private:
    UpdateFlow::Environment environment() {
        return {m_server.url(),
                u"1.0.0"_s,
                {Installation::Kind::bundle, m_keys.filePath(u"opt/Nubra"_s)},
                m_publicKeyPem,
                {u"--dev"_s},
                [this](const QString& program, const QStringList& arguments, QString*) {
                    m_launched = QStringList{program} + arguments;
                    return true;
                }};
    }

    void serve(Response manifest) {
        const std::lock_guard lock(m_mutex);
        m_manifest = std::move(manifest);
    }
    void serveArchive(Response archive) {
        const std::lock_guard lock(m_mutex);
        m_archive = std::move(archive);
    }
    // Base64 of the Ed25519 signature of `bytes` with the key named `key`.
    QString sign(const QByteArray& bytes, const QString& key = u"release"_s) const {
        QFile in(m_keys.filePath(u"signed"_s));
        if (!in.open(QIODevice::WriteOnly) || in.write(bytes) != bytes.size())
            return {};
        in.close();
        const QString out = m_keys.filePath(u"signature"_s);
        if (!openssl({u"pkeyutl"_s, u"-sign"_s, u"-inkey"_s, m_keys.filePath(key), u"-rawin"_s, u"-in"_s,
                      in.fileName(), u"-out"_s, out}))
            return {};
        QFile signature(out);
        return signature.open(QIODevice::ReadOnly) ? QString::fromLatin1(signature.readAll().toBase64())
                                                   : QString();
    }
    QString signedVersion(const QString& version, const QString& checksum) const {
        return sign(LinuxUpdaterScript::releaseStatement(version, checksum));
    }

    // A release of the archive as `./nubra.sh release` announces it, signed with the release key.
    void serveRelease(const QString& version, const QString& notes,
                      const QString& checksum = sha256(archiveBytes), QString signature = {},
                      std::optional<QString> versionSignature = std::nullopt) {
        if (signature.isEmpty())
            signature = sign(archiveBytes);
        if (!versionSignature)
            versionSignature = signedVersion(version, checksum);
        QJsonObject release{{u"available"_s, true},
                            {u"version"_s, version},
                            {u"url"_s, QString(m_server.url().toString() + u"/releases/Nubra.tar.gz"_s)},
                            {u"sha256"_s, checksum},
                            {u"signature"_s, signature}};
        if (!versionSignature->isEmpty())
            release.insert(u"version_signature"_s, *versionSignature);
        if (!notes.isEmpty())
            release.insert(u"notes"_s, notes);
        serve(Response::whole(
            200, QJsonDocument(QJsonObject{{u"ok"_s, true}, {u"data"_s, QJsonValue(release)}}).toJson()));
    }

    // Checks, and accepts the offer.
    void install(UpdateFlow& flow) {
        flow.checkForUpdate(true);
        QTRY_VERIFY(openAlert(u"updateAvailableAlert"_s));
        openAlert(u"updateAvailableAlert"_s)
            ->findChild<QPushButton*>(u"updateAvailableAlertInstallButton"_s)
            ->click();
    }

    QTemporaryDir m_temp;
    QTemporaryDir m_keys; // and the installation's folder
    QString m_publicKeyPem;
    LocalHttpServer m_server;
    std::mutex m_mutex;
    Response m_manifest;
    Response m_archive;
    QStringList m_launched;
};

QTEST_MAIN(UpdateFlowTest)
#include "tst_updateflow.moc"
