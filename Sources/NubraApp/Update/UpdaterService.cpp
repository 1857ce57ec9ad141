#include "NubraApp/Update/UpdaterService.h"

#include "NubraApp/Update/UpdateDownload.h"
#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Update/LinuxUpdaterScript.h"

#include <QDir>
#include <QProcess>
#include <QSaveFile>
#include <QUuid>

namespace UpdaterService {

namespace {

QString freshTemporaryPath(const QString& suffix) {
    return QDir::temp().filePath(QStringLiteral("nubra-update-") +
                                 QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper() + suffix);
}

} // namespace

void check(const QUrl& baseURL, const QString& currentVersion, QObject* context,
           std::function<void(const CheckResult&)> done) {
    const GlossAPI api(baseURL, nubraDirectSession());
    UpdateCheck::check(api, currentVersion, context, std::move(done));
}

UpdateDownload* download(QNetworkAccessManager* session, const UpdateInfo& info, QObject* parent) {
    return new UpdateDownload(session, info, parent);
}

bool canInstall(const Installation& installation, const QString& publicKeyPem) {
    return installation.kind == Installation::Kind::bundle && !publicKeyPem.isEmpty();
}

bool startDetached(const QString& program, const QStringList& arguments, QString* error) {
    QProcess process;
    process.setProgram(program);
    process.setArguments(arguments);
    process.setWorkingDirectory(QStringLiteral("/"));
    if (process.startDetached())
        return true;
    *error = process.errorString();
    return false;
}

InstallOutcome installAndRelaunch(const InstallInputs& inputs, const Launcher& launch) {
    LinuxUpdate update;
    update.archivePath = inputs.archivePath;
    update.version = inputs.info.version;
    update.expectedSha256 = inputs.info.sha256;
    update.errPath = freshTemporaryPath(QStringLiteral(".err"));
    update.installDir = inputs.installation.folder;
    update.pid = inputs.pid;
    update.publicKeyPem = inputs.publicKeyPem;
    update.signatureBase64 = inputs.info.signature;
    update.relaunchArguments = inputs.relaunchArguments;
    const std::optional<QString> script = LinuxUpdaterScript::build(update);
    if (!script) {
        nbDebug(QStringLiteral("updater: install script refused its inputs"));
        return {InstallOutcome::Kind::blocked, {}};
    }

    const QString path = freshTemporaryPath(QStringLiteral(".sh"));
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(script->toUtf8()) < 0 || !file.commit()) {
        nbDebug(QStringLiteral("updater: cannot write ") + path + QStringLiteral(": ") + file.errorString());
        return {InstallOutcome::Kind::notPrepared, {}};
    }
    nbDebug(QStringLiteral("updater: install script ") + path + QStringLiteral(", error note ") +
            update.errPath);
    QString error;
    if (!launch(QStringLiteral("/bin/bash"), {path}, &error)) {
        nbDebug(QStringLiteral("updater: cannot start the install script: ") + error);
        return {InstallOutcome::Kind::notStarted, error};
    }
    return {};
}

} // namespace UpdaterService
