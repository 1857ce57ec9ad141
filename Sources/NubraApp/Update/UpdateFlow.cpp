#include "NubraApp/Update/UpdateFlow.h"

#include "NubraApp/Foundation/Alert.h"
#include "NubraApp/Update/UpdateDownload.h"
#include "NubraApp/Update/UpdaterService.h"
#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QCoreApplication>
#include <QPushButton>

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
    const UpdaterService::InstallOutcome outcome = UpdaterService::installAndRelaunch(
        {archivePath, info, m_environment.installation, m_environment.publicKeyPem,
         QCoreApplication::applicationPid(), m_environment.relaunchArguments},
        m_environment.launch);
    switch (outcome.kind) {
    case UpdaterService::InstallOutcome::Kind::started:
        nbDebug(QStringLiteral("updater: quitting for the install script"));
        return emit quitRequested();
    case UpdaterService::InstallOutcome::Kind::blocked:
        return showAlert(QStringLiteral("updateBlockedAlert"),
                         L10n::t(QStringLiteral("Update blocked"), QStringLiteral("已阻止本次更新")),
                         L10n::t(QStringLiteral("The release manifest is missing its SHA-256 checksum. The "
                                                "update was not installed."),
                                 QStringLiteral("更新清单缺少 SHA-256 校验值，本次更新未安装。")));
    case UpdaterService::InstallOutcome::Kind::notPrepared:
        return showAlert(QStringLiteral("updateFailedAlert"), updateFailedTitle(),
                         L10n::t(QStringLiteral("Could not prepare the installer."),
                                 QStringLiteral("无法准备安装程序。")));
    case UpdaterService::InstallOutcome::Kind::notStarted:
        return showAlert(QStringLiteral("updateFailedAlert"), updateFailedTitle(), outcome.error);
    }
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
