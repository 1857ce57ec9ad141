#include "NubraApp/Update/UpdaterService.h"

#include "NubraApp/Update/UpdateDownload.h"
#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Update/LinuxUpdaterScript.h"

#include <QDir>
#include <QFileInfo>
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

std::variant<PreparedInstall, InstallRefusal> prepareInstall(const InstallInputs& inputs) {
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
        return InstallRefusal::blocked;
    }

    const QString path = freshTemporaryPath(QStringLiteral(".sh"));
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(script->toUtf8()) < 0 || !file.commit()) {
        nbDebug(QStringLiteral("updater: cannot write ") + path + QStringLiteral(": ") + file.errorString());
        return InstallRefusal::notPrepared;
    }
    nbDebug(QStringLiteral("updater: install script ") + path + QStringLiteral(", error note ") +
            update.errPath);
    return PreparedInstall{path};
}

} // namespace UpdaterService
