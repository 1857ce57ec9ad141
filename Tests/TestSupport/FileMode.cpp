#include "TestSupport/FileMode.h"

#include <QFile>

#include <sys/stat.h>

int fileMode(const QString& path) {
    struct stat info {};
    if (::lstat(QFile::encodeName(path).constData(), &info) != 0)
        return -1;
    return int(info.st_mode & 07777);
}

bool setFileMode(const QString& path, int mode) {
    return ::chmod(QFile::encodeName(path).constData(), mode_t(mode)) == 0;
}
