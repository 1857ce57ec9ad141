#pragma once

#include "NubraCore/Update/Installation.h"
#include "NubraCore/Update/UpdateCheck.h"

#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>
#include <variant>

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

// The install script, written and ready to run, or why there is none.
struct PreparedInstall {
    QString scriptPath;
};
enum class InstallRefusal {
    blocked,     // the builder refused the inputs
    notPrepared, // the script could not be written
};

// Writes the one-shot script that replaces `installation` with the downloaded archive once the
// process `pid` has ended, and starts the new version with `relaunchArguments`. Its error note and
// the script itself go to the temporary folder under fresh names.
struct InstallInputs {
    QString archivePath;
    UpdateInfo info;
    Installation installation;
    QString publicKeyPem;
    qint64 pid = 0;
    QStringList relaunchArguments;
};
std::variant<PreparedInstall, InstallRefusal> prepareInstall(const InstallInputs& inputs);

} // namespace UpdaterService
