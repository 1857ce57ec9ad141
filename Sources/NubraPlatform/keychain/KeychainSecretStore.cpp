#include "NubraPlatform/keychain/KeychainSecretStore.h"

#include "NubraCore/Support/DebugLog.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QSemaphore>
#include <QThread>

#include <memory>
#include <qt6keychain/keychain.h>

namespace {

constexpr int callTimeoutMs = 60'000;

struct Outcome {
    QKeychain::Error error = QKeychain::OtherError;
    QByteArray data;
};

// Runs a job to its end and answers its outcome. The job lives on the main thread and deletes itself:
// its backend may report from whichever thread runs the default GLib context (our accessibility thread
// does), so the outcome is copied inside that report and the job is never destroyed under it. From the
// main thread the wait is a local event loop; from any other thread, a semaphore. Failures are logged
// by kind only: the job's text may quote the item.
Outcome finish(QKeychain::Job* job, const char* what) {
    job->setAutoDelete(true);
    job->setInsecureFallback(false);
    auto outcome = std::make_shared<Outcome>();
    auto done = std::make_shared<QSemaphore>();
    QObject::connect(
        job, &QKeychain::Job::finished, job,
        [outcome, done](QKeychain::Job* finished) {
            outcome->error = finished->error();
            if (auto* read = qobject_cast<QKeychain::ReadPasswordJob*>(finished))
                outcome->data = read->binaryData();
            done->release();
        },
        Qt::DirectConnection);
    QThread* main = QCoreApplication::instance() ? QCoreApplication::instance()->thread() : nullptr;
    if (main && QThread::currentThread() != main) {
        job->moveToThread(main);
        QMetaObject::invokeMethod(
            job, [job]() { job->start(); }, Qt::QueuedConnection);
        // The keyring answers or times out on its own well within this; the bound only keeps a wedged
        // main thread from holding this one forever.
        if (!done->tryAcquire(1, callTimeoutMs))
            return {QKeychain::OtherError, {}};
    } else {
        QEventLoop loop;
        QObject::connect(job, &QKeychain::Job::finished, &loop, &QEventLoop::quit, Qt::QueuedConnection);
        job->start();
        while (!done->tryAcquire())
            loop.exec();
    }
    if (outcome->error != QKeychain::NoError && outcome->error != QKeychain::EntryNotFound)
        nbDebug(QStringLiteral("keychain: %1 failed (error %2)")
                    .arg(QLatin1StringView(what))
                    .arg(int(outcome->error)));
    return *outcome;
}

} // namespace

KeychainSecretStore::KeychainSecretStore(QString service) : m_service(std::move(service)) {}

bool KeychainSecretStore::write(const QString& account, const QByteArray& value) {
    auto* job = new QKeychain::WritePasswordJob(m_service);
    job->setKey(account);
    job->setBinaryData(value);
    return finish(job, "write").error == QKeychain::NoError;
}

std::optional<QByteArray> KeychainSecretStore::read(const QString& account) {
    auto* job = new QKeychain::ReadPasswordJob(m_service);
    job->setKey(account);
    Outcome outcome = finish(job, "read");
    if (outcome.error != QKeychain::NoError)
        return std::nullopt;
    return std::move(outcome.data);
}

bool KeychainSecretStore::remove(const QString& account) {
    // The Secret Service reports success for an item that never existed; only an item that was there
    // counts as removed.
    if (!read(account))
        return false;
    auto* job = new QKeychain::DeletePasswordJob(m_service);
    job->setKey(account);
    return finish(job, "delete").error == QKeychain::NoError;
}
