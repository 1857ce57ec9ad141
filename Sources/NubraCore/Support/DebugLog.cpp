#include "NubraCore/Support/DebugLog.h"

#include <QDateTime>
#include <QFile>
#include <QSaveFile>

#include <mutex>

namespace {

// NUBRA_DEBUG_LOG lets a test desktop keep a log of its own instead of the machine's one.
QString initialPath() {
    const QString overridden = qEnvironmentVariable("NUBRA_DEBUG_LOG");
    return overridden.isEmpty() ? QString::fromLatin1(DebugLog::defaultPath) : overridden;
}

struct PathSlot {
    std::mutex lock;
    QString path = initialPath();
};

PathSlot& pathSlot() {
    static PathSlot slot;
    return slot;
}

} // namespace

namespace DebugLog {

QString path() {
    auto& slot = pathSlot();
    std::lock_guard guard(slot.lock);
    return slot.path;
}

void setPath(const QString& newPath) {
    auto& slot = pathSlot();
    std::lock_guard guard(slot.lock);
    slot.path = newPath;
}

QByteArray formatLine(const QString& message) {
    const QString stamp =
        QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) + u" +0000";
    return (stamp + u' ' + message + u'\n').toUtf8();
}

} // namespace DebugLog

void nbDebug(const QString& message) {
    const QByteArray line = DebugLog::formatLine(message);
    const QString target = DebugLog::path();

    QFile existing(target);
    if (existing.exists()) {
        // One unbuffered write in append mode, so lines from several threads never interleave.
        if (existing.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered))
            existing.write(line);
        return;
    }
    QSaveFile fresh(target);
    if (fresh.open(QIODevice::WriteOnly)) {
        fresh.write(line);
        fresh.commit();
    }
}
