#include "NubraCore/Support/PrivateFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Works on the opened file itself, so a link swapped in after a check cannot redirect the change.
// Non-blocking, so a FIFO at the path cannot stall the open.
void openAndRestrict(const QString& path, int extraFlags) {
    const int fd = ::open(QFile::encodeName(path).constData(),
                          O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | extraFlags, S_IRUSR | S_IWUSR);
    if (fd < 0)
        return;
    struct stat info {};
    if (::fstat(fd, &info) == 0 && (S_ISREG(info.st_mode) || S_ISDIR(info.st_mode)) &&
        info.st_uid == ::geteuid() && (info.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        ::fchmod(fd, info.st_mode & S_IRWXU);
    ::close(fd);
}

} // namespace

namespace PrivateFiles {

void ensureFolder(const QString& path) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    ::mkdir(QFile::encodeName(path).constData(), S_IRWXU);
    restrict(path);
}

void ensureFile(const QString& path) {
    openAndRestrict(path, O_CREAT);
}

void restrict(const QString& path) {
    openAndRestrict(path, 0);
}

} // namespace PrivateFiles
