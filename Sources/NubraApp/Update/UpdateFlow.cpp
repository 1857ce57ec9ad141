#include "NubraApp/Update/UpdateFlow.h"

#include "NubraApp/Foundation/Alert.h"
#include "NubraApp/Update/UpdateDownload.h"
#include "NubraApp/Update/UpdaterService.h"
#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QPushButton>
#include <QTimer>

#include <unistd.h>

namespace {

QString updateFailedTitle() {
    return L10n::t(QStringLiteral("Update failed"), QStringLiteral("更新失败"));
}

// Why "Download & Install" is not offered, when it is not.
QString whyNotInstallable(const Installation& installation) {
    if (installation.kind == Installation::Kind::packageManaged)
        return L10n::t(QStringLiteral("Nubra was installed by your package manager. Update it there, for "
                                      "example with: sudo apt update && sudo apt upgrade"),
                       QStringLiteral("Nubra 由系统的软件包管理器安装，请用它更新，例如：sudo apt update && "
                                      "sudo apt upgrade"));
    return L10n::t(QStringLiteral("This copy of Nubra was not installed from a signed release and cannot "
                                  "replace itself. Install the new release from the Nubra website."),
                   QStringLiteral("当前的 Nubra 不是从签名的发布包安装的，无法自行更新。请从 Nubra "
                                  "网站安装新版本。"));
}

QString notInstalled(const QString& english, const QString& chinese) {
    return L10n::t(english + QStringLiteral(" The update was not installed."),
                   chinese + QStringLiteral("本次更新未安装。"));
}

// Why the install script was not even written for this release.
QString refusalText(LinuxUpdaterScript::Refusal refusal, const UpdateInfo& info) {
    using Refusal = LinuxUpdaterScript::Refusal;
    switch (refusal) {
    case Refusal::checksum:
        break;
    case Refusal::signature:
        if (info.versionSignature.isEmpty())
            return notInstalled(
                QStringLiteral("The release manifest does not carry the signed version "
                               "this Nubra requires, so the release could be an older one."),
                QStringLiteral("更新清单缺少本版 Nubra 所需的版本签名，该版本可能是旧版本冒充的。"));
        return notInstalled(QStringLiteral("The release manifest's signatures are malformed."),
                            QStringLiteral("更新清单中的签名格式有误。"));
    case Refusal::version:
        return notInstalled(
            QStringLiteral("Version %1 cannot replace the installed version.").arg(info.version),
            QStringLiteral("版本 %1 不能替换当前安装的版本。").arg(info.version));
    case Refusal::unsafePath:
        return notInstalled(
            QStringLiteral("The temporary folder %1 has a name the installer does not accept.")
                .arg(QDir::tempPath()),
            QStringLiteral("临时文件夹 %1 的名称不被安装程序接受。").arg(QDir::tempPath()));
    case Refusal::key:
    case Refusal::processOrPolls:
        return notInstalled(QStringLiteral("The installer refused its inputs."),
                            QStringLiteral("安装程序拒绝了它的输入。"));
    }
    return L10n::t(QStringLiteral("The release manifest is missing its SHA-256 checksum. The update was not "
                                  "installed."),
                   QStringLiteral("更新清单缺少 SHA-256 校验值，本次更新未安装。"));
}

// Why the downloaded archive did not pass the script's check, from the note the script left.
QString checkFailureText(const QString& note) {
    if (note == u"checksum mismatch")
        return notInstalled(QStringLiteral("The downloaded release changed before it could be installed."),
                            QStringLiteral("下载的版本在安装前被改动了。"));
    if (note == u"signature verify failed")
        return notInstalled(QStringLiteral("The downloaded release is not signed with Nubra's release key."),
                            QStringLiteral("下载的版本没有 Nubra 发布密钥的签名。"));
    if (note == u"version signature verify failed")
        return notInstalled(QStringLiteral("The release's version is not signed with Nubra's release key, so "
                                           "it could be an older release."),
                            QStringLiteral("该版本的版本号没有 Nubra 发布密钥的签名，可能是旧版本冒充的。"));
    return notInstalled(QStringLiteral("The downloaded release could not be checked (%1).").arg(note),
                        QStringLiteral("无法检查下载的版本（%1）。").arg(note));
}

} // namespace

UpdateFlow::UpdateFlow(Environment environment, QObject* parent)
    : QObject(parent), m_environment(std::move(environment)) {
    if (!m_environment.launch)
        m_environment.launch = UpdaterService::startDetached;
}

UpdateFlow::~UpdateFlow() {
    for (const QPointer<QMessageBox>& alert : m_alerts)
        delete alert.data();
}

void UpdateFlow::checkForUpdate(bool manual) {
    UpdaterService::check(m_environment.baseURL, m_environment.currentVersion, this,
                          [this, manual](const CheckResult& result) {
                              nbDebug(QStringLiteral("updater: result=") + result.description());
                              present(result, manual);
                          });
}

void UpdateFlow::reportFailedInstall(const QString& notePath) {
    const QFileInfo note(notePath);
    if (note.absolutePath() != QFileInfo(QDir::tempPath()).absoluteFilePath() ||
        !note.fileName().startsWith(u"nubra-update-") || !note.fileName().endsWith(u".err") ||
        !note.isFile() || note.isSymLink()) {
        nbDebug(QStringLiteral("updater: ignoring a failure note outside the temporary folder"));
        return;
    }
    const QString reason = UpdaterService::takeNote(notePath);
    showAlert(QStringLiteral("updateFailedAlert"), updateFailedTitle(),
              L10n::t(QStringLiteral("The update could not be installed (%1). Nubra %2 is still installed.")
                          .arg(reason, m_environment.currentVersion),
                      QStringLiteral("更新未能安装（%1）。当前仍是 Nubra %2。")
                          .arg(reason, m_environment.currentVersion)));
}

void UpdateFlow::reportStarted(const QString& healthFile) {
    const QFileInfo file(healthFile);
    const QFileInfo folder(file.absolutePath());
    if (file.fileName() != u"healthy" || !folder.fileName().startsWith(u".nubra-old.") || !folder.isDir() ||
        folder.isSymLink() || folder.ownerId() != ::getuid()) {
        nbDebug(QStringLiteral("updater: not reporting to ") + healthFile);
        return;
    }
    QFile marker(healthFile);
    const bool made = marker.open(QIODevice::WriteOnly | QIODevice::NewOnly);
    nbDebug(made
                ? QStringLiteral("updater: started after an update, reported healthy")
                : QStringLiteral("updater: started after an update, cannot report: ") + marker.errorString());
}

void UpdateFlow::present(const CheckResult& result, bool manual) {
    switch (result.kind) {
    case CheckResult::Kind::available:
        return offer(result.info);
    case CheckResult::Kind::failed:
        if (manual)
            emit noticeRequested(result.message, true);
        return;
    case CheckResult::Kind::upToDate:
        if (manual)
            emit noticeRequested(UpdateCheck::upToDateMessage(m_environment.currentVersion), false);
        return;
    }
}

void UpdateFlow::offer(const UpdateInfo& info) {
    // A later check brings the same release again: one offer on screen at a time.
    delete m_offer.data();
    const bool installable =
        UpdaterService::canInstall(m_environment.installation, m_environment.publicKeyPem);
    QString body = info.version + QStringLiteral("\n\n");
    if (!installable)
        body += (info.notes.isEmpty() ? QString() : info.notes + QStringLiteral("\n\n")) +
                whyNotInstallable(m_environment.installation);
    else
        body += info.notes.isEmpty() ? L10n::t(QStringLiteral("Download and install now?"),
                                               QStringLiteral("是否立即下载并安装？"))
                                     : info.notes;

    const QString name = QStringLiteral("updateAvailableAlert");
    QMessageBox* alert =
        Alert::make(name, QMessageBox::Information,
                    L10n::t(QStringLiteral("New version available"), QStringLiteral("发现新版本")), body);
    if (installable) {
        QPushButton* install = Alert::addButton(
            alert, L10n::t(QStringLiteral("Download & Install"), QStringLiteral("下载并安装")),
            QMessageBox::AcceptRole, QStringLiteral("InstallButton"));
        Alert::addButton(alert, L10n::t(QStringLiteral("Later"), QStringLiteral("稍后")),
                         QMessageBox::RejectRole, QStringLiteral("LaterButton"));
        connect(install, &QPushButton::clicked, this, [this, info] { startDownload(info); });
    } else {
        Alert::addOk(alert);
    }
    m_offer = alert;
    present(alert);
}

void UpdateFlow::startDownload(const UpdateInfo& info) {
    if (m_download) {
        nbDebug(QStringLiteral("updater: a download is already running"));
        return;
    }
    m_download = UpdaterService::download(nubraDirectSession(), info, this);
    const auto activity = [version = info.version](qint64 received, qint64 total) {
        if (total > 0) {
            const QString percent = QString::number(received * 100 / total);
            return L10n::t(QStringLiteral("Downloading Nubra %1… %2 %").arg(version, percent),
                           QStringLiteral("正在下载 Nubra %1…%2%").arg(version, percent));
        }
        const QString megabytes = QString::number(double(received) / (1 << 20), 'f', 1);
        return L10n::t(QStringLiteral("Downloading Nubra %1… %2 MB").arg(version, megabytes),
                       QStringLiteral("正在下载 Nubra %1…%2 MB").arg(version, megabytes));
    };
    emit activityChanged(activity(0, -1));
    connect(m_download, &UpdateDownload::progress, this, [this, activity](qint64 received, qint64 total) {
        emit activityChanged(activity(received, total));
    });
    const auto ended = [this] {
        m_download->deleteLater();
        m_download.clear();
        emit activityChanged(QString());
    };
    connect(m_download, &UpdateDownload::finished, this, [this, ended, info](const QString& path) {
        ended();
        install(path, info);
    });
    connect(m_download, &UpdateDownload::failed, this, [this, ended](const QString& message) {
        ended();
        showAlert(QStringLiteral("updateFailedAlert"), updateFailedTitle(), message);
    });
    connect(m_download, &UpdateDownload::cancelled, this, ended);
}

void UpdateFlow::cancelDownload() {
    if (m_download)
        m_download->cancel();
}

void UpdateFlow::install(const QString& archivePath, const UpdateInfo& info) {
    const auto prepared = UpdaterService::prepare(
        {archivePath, info, m_environment.installation, m_environment.publicKeyPem,
         m_environment.currentVersion, QCoreApplication::applicationPid(), m_environment.relaunchArguments});
    if (const auto* refused = std::get_if<UpdaterService::NotPrepared>(&prepared)) {
        if (refused->refusal)
            return showBlocked(refusalText(*refused->refusal, info));
        return showAlert(QStringLiteral("updateFailedAlert"), updateFailedTitle(),
                         L10n::t(QStringLiteral("Could not prepare the installer."),
                                 QStringLiteral("无法准备安装程序。")));
    }
    checkThenRun(std::get<UpdaterService::PreparedInstall>(prepared));
}

void UpdateFlow::checkThenRun(const UpdaterService::PreparedInstall& install) {
    // The script checks the archive once before Nubra quits for it, so a release that will not install
    // leaves Nubra running and says why; it checks again when it runs.
    auto* check = new QProcess(this);
    check->setWorkingDirectory(QStringLiteral("/"));
    check->setProcessChannelMode(QProcess::ForwardedChannels);
    const auto ended = [this, check, install](bool passed, const QString& note) {
        check->disconnect(this);
        check->deleteLater();
        if (passed)
            return run(install);
        QFile::remove(install.scriptPath);
        showBlocked(checkFailureText(note));
    };
    connect(check, &QProcess::finished, this, [ended, install](int code, QProcess::ExitStatus status) {
        const bool passed = status == QProcess::NormalExit && code == 0;
        ended(passed, passed ? QString() : UpdaterService::takeNote(install.notePath));
    });
    connect(check, &QProcess::errorOccurred, this, [ended, check](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            ended(false, check->errorString());
    });
    QTimer::singleShot(checkTimeoutMs, check, [check] { check->kill(); });
    check->start(QStringLiteral("/bin/bash"), {install.scriptPath, QStringLiteral("--check")});
}

void UpdateFlow::run(const UpdaterService::PreparedInstall& install) {
    QString error;
    if (!m_environment.launch(QStringLiteral("/bin/bash"), {install.scriptPath}, &error)) {
        nbDebug(QStringLiteral("updater: cannot start the install script: ") + error);
        QFile::remove(install.scriptPath);
        return showAlert(QStringLiteral("updateFailedAlert"), updateFailedTitle(), error);
    }
    nbDebug(QStringLiteral("updater: quitting for the install script"));
    emit quitRequested();
}

void UpdateFlow::showBlocked(const QString& why) {
    showAlert(QStringLiteral("updateBlockedAlert"),
              L10n::t(QStringLiteral("Update blocked"), QStringLiteral("已阻止本次更新")), why);
}

void UpdateFlow::showAlert(const QString& name, const QString& title, const QString& body) {
    QMessageBox* alert = Alert::make(name, QMessageBox::Warning, title, body);
    Alert::addOk(alert);
    present(alert);
}

void UpdateFlow::present(QMessageBox* alert) {
    std::erase_if(m_alerts, [](const QPointer<QMessageBox>& open) { return open.isNull(); });
    m_alerts.emplace_back(alert);
    Alert::present(alert);
}
