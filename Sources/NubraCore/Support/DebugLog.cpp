#include "NubraCore/Support/DebugLog.h"

#include "NubraCore/Support/ControlCharacters.h"

#include <QDateTime>
#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

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

enum class Missing { create, skip };

// The log sits in a folder everybody may write to, so whatever is found at its path may have been put
// there by someone else: a link is never followed (nor a dangling one used to create its target), and
// only a plain file of this user's with no second name is written to. The checks look at the opened
// file itself, so nothing can be swapped in between checking and writing.
void append(const QByteArray& line, Missing missing) {
    const QByteArray path = QFile::encodeName(DebugLog::path());
    // Non-blocking, so a FIFO at the path cannot stall the caller.
    const int flags = O_WRONLY | O_APPEND | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK |
                      (missing == Missing::create ? O_CREAT : 0);
    const int fd = ::open(path.constData(), flags, S_IRUSR | S_IWUSR);
    if (fd < 0)
        return;
    struct stat info {};
    if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == ::geteuid() &&
        info.st_nlink == 1) {
        if ((info.st_mode & (S_IRWXG | S_IRWXO)) != 0)
            ::fchmod(fd, info.st_mode & S_IRWXU); // a log an older version left readable to others
        // One write in append mode, so lines from several threads and processes never interleave.
        while (::write(fd, line.constData(), std::size_t(line.size())) < 0 && errno == EINTR) {
        }
    }
    ::close(fd);
}

QByteArray lineOf(const QString& text) {
    return (ControlCharacters::escaped(text) + u'\n').toUtf8();
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
    return lineOf(stamp + u' ' + message);
}

void appendUnstamped(const QString& message) {
    append(lineOf(message), Missing::skip);
}

} // namespace DebugLog

void nbDebug(const QString& message) {
    append(DebugLog::formatLine(message), Missing::create);
}
