#pragma once

#include "NubraCore/Update/Installation.h"
#include "NubraCore/Update/LinuxUpdaterScript.h"
#include "NubraCore/Update/UpdateCheck.h"

#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>
#include <optional>
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

// Starts `program` detached; false with a reason when it could not be started.
using Launcher = std::function<bool(const QString& program, const QStringList& arguments, QString* error)>;
// QProcess::startDetached from the root folder.
bool startDetached(const QString& program, const QStringList& arguments, QString* error);

struct InstallInputs {
    QString archivePath;
    UpdateInfo info;
    Installation installation;
    QString publicKeyPem;
    QString currentVersion; // what the release must be newer than
    qint64 pid = 0;         // the process the script waits for
    QStringList relaunchArguments;
};

// The install script written for one archive, and the note it leaves when it fails.
struct PreparedInstall {
    QString scriptPath;
    QString notePath;
};

// Why no script was written: the builder refused the inputs (`refusal`), or writing failed.
struct NotPrepared {
    std::optional<LinuxUpdaterScript::Refusal> refusal;
};

// Writes the one-shot script that checks the downloaded archive, replaces `installation` with it once
// the process `pid` has ended and then starts the new version with `relaunchArguments`. The script and
// its error note go to the temporary folder under fresh names.
std::variant<PreparedInstall, NotPrepared> prepare(const InstallInputs& inputs);

// The first line of the note a failed script left (at most 512 bytes of it, without control
// characters), then removes the note.
QString takeNote(const QString& notePath);

} // namespace UpdaterService
