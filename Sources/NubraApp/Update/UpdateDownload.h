#pragma once

#include "NubraCore/Update/UpdateCheck.h"

#include <QCryptographicHash>
#include <QObject>
#include <QPointer>
#include <QString>

#include <memory>
#include <optional>

class QNetworkAccessManager;
class QNetworkReply;
class QSaveFile;

// One release archive on its way to the temporary folder. The body is written to the file as it
// arrives and hashed on the way, so a download that does not match the announced checksum is reported
// before anything is installed. It ends exactly once: finished, failed or cancelled.
class UpdateDownload : public QObject {
    Q_OBJECT

public:
    // No release comes near this; a peer that keeps sending is cut off.
    static constexpr qint64 maxBytes = qint64(512) << 20;

    // Starts at once. The file is "Nubra-<version>-<UUID>.tar.gz" in the temporary folder.
    UpdateDownload(QNetworkAccessManager* session, const UpdateInfo& info, QObject* parent = nullptr);
    ~UpdateDownload() override;

    const QString& archivePath() const { return m_path; }

public slots:
    // Stops the transfer and removes what was written; reports cancelled().
    void cancel();

signals:
    // `total` is -1 while the size is unknown.
    void progress(qint64 received, qint64 total);
    void finished(const QString& archivePath);
    // What the user is told, one sentence.
    void failed(const QString& message);
    void cancelled();

private:
    void onReadyRead();
    void onFinished();
    void end();
    void fail(const QString& message);

    QString m_path;
    std::optional<QString> m_expectedSha256; // lower case, when the manifest's is well formed
    std::unique_ptr<QSaveFile> m_file;
    QCryptographicHash m_hash{QCryptographicHash::Sha256};
    QPointer<QNetworkReply> m_reply;
    qint64 m_received = 0;
    bool m_ended = false;
};
