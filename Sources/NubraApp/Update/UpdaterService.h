#pragma once

#include "NubraCore/Update/Installation.h"
#include "NubraCore/Update/UpdateCheck.h"

#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>

class QNetworkAccessManager;
class QObject;
class UpdateDownload;

// The three steps of an update: ask the service, fetch the archive, hand over to the install script.
namespace UpdaterService {

// Asks the service at `baseURL` for its latest release with a client of its own, and reports the
// outcome once, unless `context` goes first.
void check(const QUrl& baseURL, const QString& currentVersion, QObject* context,
           std::function<void(const CheckResult&)> done);

// Starts fetching the release archive into the temporary folder.
UpdateDownload* download(QNetworkAccessManager* session, const UpdateInfo& info, QObject* parent);

// Whether this installation can replace itself: a user-local bundle, in a build that carries the key
// releases are signed with.
bool canInstall(const Installation& installation, const QString& publicKeyPem);

// Starts `program` detached; false with a reason when it could not be started.
using Launcher = std::function<bool(const QString& program, const QStringList& arguments, QString* error)>;
// QProcess::startDetached from the root folder.
bool startDetached(const QString& program, const QStringList& arguments, QString* error);

struct InstallInputs {
    QString archivePath;
    UpdateInfo info;
    Installation installation;
    QString publicKeyPem;
    qint64 pid = 0; // the process the script waits for
    QStringList relaunchArguments;
};

struct InstallOutcome {
    enum class Kind {
        started,     // the script runs and waits for the process to end
        blocked,     // the script builder refused the inputs
        notPrepared, // the script could not be written
        notStarted,  // bash could not be started: `error` says why
    };
    Kind kind = Kind::started;
    QString error;
};

// Writes the one-shot script that replaces `installation` with the downloaded archive once the
// process `pid` has ended and then starts the new version with `relaunchArguments`, and starts it
// with `launch`. Its error note and the script itself go to the temporary folder under fresh names.
// The caller quits when it has started.
InstallOutcome installAndRelaunch(const InstallInputs& inputs, const Launcher& launch);

} // namespace UpdaterService
