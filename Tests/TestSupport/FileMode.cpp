#include "TestSupport/FileMode.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

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

QString writeFileUnder(const QString& root, const QString& relativePath, const QByteArray& content) {
    const QString path = QDir(root).filePath(relativePath);
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
    return path;
}
