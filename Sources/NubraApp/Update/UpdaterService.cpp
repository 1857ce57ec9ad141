#include "NubraApp/Update/UpdaterService.h"

#include "NubraApp/Update/UpdateDownload.h"
#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Support/ControlCharacters.h"
#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Update/LinuxUpdaterScript.h"

#include <QDir>
#include <QFile>
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

std::variant<PreparedInstall, NotPrepared> prepare(const InstallInputs& inputs) {
    LinuxUpdate update;
    update.archivePath = inputs.archivePath;
    update.version = inputs.info.version;
    update.currentVersion = inputs.currentVersion;
    update.expectedSha256 = inputs.info.sha256;
    update.errPath = freshTemporaryPath(QStringLiteral(".err"));
    update.installDir = inputs.installation.folder;
    update.pid = inputs.pid;
    update.publicKeyPem = inputs.publicKeyPem;
    update.signatureBase64 = inputs.info.signature;
    update.versionSignatureBase64 = inputs.info.versionSignature;
    update.relaunchArguments = inputs.relaunchArguments;
    if (const auto refusal = LinuxUpdaterScript::refusal(update)) {
        nbDebug(QStringLiteral("updater: install script refused its inputs (%1)").arg(int(*refusal)));
        return NotPrepared{refusal};
    }

    const QString path = freshTemporaryPath(QStringLiteral(".sh"));
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(LinuxUpdaterScript::build(update)->toUtf8()) < 0 ||
        !file.commit()) {
        nbDebug(QStringLiteral("updater: cannot write ") + path + QStringLiteral(": ") + file.errorString());
        return NotPrepared{};
    }
    nbDebug(QStringLiteral("updater: install script ") + path + QStringLiteral(", error note ") +
            update.errPath);
    return PreparedInstall{path, update.errPath};
}

QString takeNote(const QString& notePath) {
    QFile note(notePath);
    QString line;
    if (note.open(QIODevice::ReadOnly))
        line = QString::fromUtf8(note.read(512)).section(u'\n', 0, 0);
    note.remove();
    // Shown to the user: whatever the file holds, no control character reaches the screen.
    return ControlCharacters::stripped(line).remove(u'\t').trimmed();
}

} // namespace UpdaterService
