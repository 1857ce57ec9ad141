#include "NubraApp/Update/UpdateDownload.h"

#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Update/ScriptInputs.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QDir>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSaveFile>
#include <QUuid>

UpdateDownload::UpdateDownload(QNetworkAccessManager* session, const UpdateInfo& info, QObject* parent)
    : QObject(parent),
      // The version comes from the network: only its harmless characters reach the file name.
      m_path(QDir::temp().filePath(QStringLiteral("Nubra-") + ScriptInputs::filteredVersion(info.version) +
                                   u'-' + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper() +
                                   QStringLiteral(".tar.gz"))),
      m_expectedSha256(ScriptInputs::normalizedChecksum(info.sha256)),
      m_file(std::make_unique<QSaveFile>(m_path)) {
    if (!m_file->open(QIODevice::WriteOnly)) {
        const QString reason = m_file->errorString();
        // Reported from the event loop, so that the caller has connected by then.
        QMetaObject::invokeMethod(
            this, [this, reason] { fail(reason); }, Qt::QueuedConnection);
        return;
    }
    QNetworkRequest request(info.downloadURL);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    m_reply = session->get(request);
    connect(m_reply, &QNetworkReply::readyRead, this, &UpdateDownload::onReadyRead);
    connect(m_reply, &QNetworkReply::finished, this, &UpdateDownload::onFinished);
    connect(m_reply, &QNetworkReply::downloadProgress, this,
            [this](qint64, qint64 total) { emit progress(m_received, total > 0 ? total : -1); });
    nbDebug(QStringLiteral("updater: downloading ") + info.downloadURL.toDisplayString() +
            QStringLiteral(" to ") + m_path);
}

UpdateDownload::~UpdateDownload() {
    if (m_reply) {
        m_reply->disconnect(this);
        m_reply->abort();
        m_reply->deleteLater();
    }
}

void UpdateDownload::onReadyRead() {
    if (m_ended)
        return;
    const QByteArray bytes = m_reply->readAll();
    m_received += bytes.size();
    if (m_received > maxBytes)
        return fail(L10n::t(QStringLiteral("The download is larger than any release of Nubra."),
                            QStringLiteral("下载的文件大于任何 Nubra 版本。")));
    m_hash.addData(bytes);
    if (m_file->write(bytes) != bytes.size())
        fail(m_file->errorString());
}

void UpdateDownload::onFinished() {
    if (m_ended)
        return;
    onReadyRead();
    if (m_ended)
        return;
    // An error page saved as the archive would only be refused later, after Nubra has quit.
    const int status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (status >= 300)
        return fail(L10n::t(QStringLiteral("The download server answered HTTP %1."),
                            QStringLiteral("下载服务器返回 HTTP %1。"))
                        .arg(status));
    if (m_reply->error() != QNetworkReply::NoError)
        return fail(m_reply->errorString());
    // A malformed checksum is not judged here: the installer refuses it on its own terms.
    if (m_expectedSha256 && QString::fromLatin1(m_hash.result().toHex()) != *m_expectedSha256)
        return fail(L10n::t(QStringLiteral("The download does not match the release's checksum."),
                            QStringLiteral("下载的文件与版本的校验值不符。")));
    if (!m_file->commit())
        return fail(m_file->errorString());
    m_ended = true;
    nbDebug(QStringLiteral("updater: downloaded %1 bytes").arg(m_received));
    emit finished(m_path);
}

void UpdateDownload::end() {
    m_ended = true;
    if (m_reply) {
        m_reply->disconnect(this);
        m_reply->abort();
    }
    m_file.reset(); // without commit(): nothing is left behind
}

void UpdateDownload::fail(const QString& message) {
    if (m_ended)
        return;
    end();
    nbDebug(QStringLiteral("updater: download failed: ") + message);
    emit failed(message);
}

void UpdateDownload::cancel() {
    if (m_ended)
        return;
    end();
    nbDebug(QStringLiteral("updater: download cancelled"));
    emit cancelled();
}
