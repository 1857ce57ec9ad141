#include "NubraPlatform/keychain/KeychainSecretStore.h"

#include "NubraCore/Support/DebugLog.h"

#include <QEventLoop>
#include <qt6keychain/keychain.h>

namespace {

// Runs a job to its end. Failures are logged by kind only: the job's text may quote the item.
bool finish(QKeychain::Job& job, const char* what) {
    job.setAutoDelete(false);
    job.setInsecureFallback(false);
    QEventLoop loop;
    QObject::connect(&job, &QKeychain::Job::finished, &loop, &QEventLoop::quit);
    job.start();
    loop.exec();
    const QKeychain::Error error = job.error();
    if (error != QKeychain::NoError && error != QKeychain::EntryNotFound)
        nbDebug(
            QStringLiteral("keychain: %1 failed (error %2)").arg(QLatin1StringView(what)).arg(int(error)));
    return error == QKeychain::NoError;
}

} // namespace

KeychainSecretStore::KeychainSecretStore(QString service) : m_service(std::move(service)) {}

bool KeychainSecretStore::write(const QString& account, const QByteArray& value) {
    QKeychain::WritePasswordJob job(m_service);
    job.setKey(account);
    job.setBinaryData(value);
    return finish(job, "write");
}

std::optional<QByteArray> KeychainSecretStore::read(const QString& account) {
    QKeychain::ReadPasswordJob job(m_service);
    job.setKey(account);
    if (!finish(job, "read"))
        return std::nullopt;
    return job.binaryData();
}

bool KeychainSecretStore::remove(const QString& account) {
    // The Secret Service reports success for an item that never existed; only an item that was there
    // counts as removed.
    if (!read(account))
        return false;
    QKeychain::DeletePasswordJob job(m_service);
    job.setKey(account);
    return finish(job, "delete");
}
