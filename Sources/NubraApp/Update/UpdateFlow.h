#pragma once

#include "NubraApp/Update/UpdaterService.h"
#include "NubraCore/Update/Installation.h"
#include "NubraCore/Update/UpdateCheck.h"

#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QUrl>

#include <vector>

class QMessageBox;
class UpdateDownload;

// An update check and what follows it: the offer of a newer release, its download (shown in the tray
// and cancellable there), the install script and the quit that lets it run; or, for a check the user
// asked for, the notice that there is nothing to install. Main thread only.
class UpdateFlow : public QObject {
    Q_OBJECT

public:
    struct Environment {
        QUrl baseURL;           // the service that announces releases
        QString currentVersion; // what a release must be newer than
        Installation installation;
        QString publicKeyPem; // the key releases are signed with; empty: no update is installed
        QStringList relaunchArguments;
        UpdaterService::Launcher launch; // empty: UpdaterService::startDetached
    };

    // How long the archive's check before quitting may take.
    static constexpr int checkTimeoutMs = 120'000;

    explicit UpdateFlow(Environment environment, QObject* parent = nullptr);
    ~UpdateFlow() override;

    // `manual`: the user asked, so every outcome is shown; an automatic check only ever offers a release.
    void checkForUpdate(bool manual);
    // The install script failed after Nubra had quit for it and started this version again: shows the
    // reason from its note at `notePath` once and removes the note. Only a note of the installer's, in
    // the temporary folder, is read.
    void reportFailedInstall(const QString& notePath);
    // Started by the install script as the new version: creates `healthFile`, which tells the script
    // that the previous version can go. Only the file the script names in its backup folder is made.
    static void reportStarted(const QString& healthFile);
    bool isDownloading() const { return !m_download.isNull(); }

public slots:
    void cancelDownload();

signals:
    // What a running download shows in the tray, e.g. "Downloading Nubra 1.2.0… 42 %"; empty once it
    // has ended.
    void activityChanged(const QString& activity);
    // The archive passed its check and the install script runs, waiting for this process to end.
    void quitRequested();
    // The outcome of a check the user asked for that offers nothing: up to date, or why it failed.
    void noticeRequested(const QString& text, bool isError);

private:
    void present(const CheckResult& result, bool manual);
    void offer(const UpdateInfo& info);
    void startDownload(const UpdateInfo& info);
    void install(const QString& archivePath, const UpdateInfo& info);
    void checkThenRun(const UpdaterService::PreparedInstall& install);
    void run(const UpdaterService::PreparedInstall& install);
    void showBlocked(const QString& why);
    void showAlert(const QString& name, const QString& title, const QString& body);
    // Shows an alert of this flow's; it goes with the flow if still open.
    void present(QMessageBox* alert);

    Environment m_environment;
    QPointer<UpdateDownload> m_download;
    QPointer<QMessageBox> m_offer;
    std::vector<QPointer<QMessageBox>> m_alerts;
};
