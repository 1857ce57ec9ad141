#include "TestSupport/ScriptSandbox.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

namespace ScriptSandbox {

bool writeFile(const QString& path, const QByteArray& content, bool executable) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        return false;
    file.close();
    if (executable)
        file.setPermissions(file.permissions() | QFileDevice::ExeOwner | QFileDevice::ExeGroup |
                            QFileDevice::ExeOther);
    return true;
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

QStringList arguments(const QString& root, const QStringList& privateDirs) {
    QStringList args{QStringLiteral("--die-with-parent")};
    const auto entries =
        QDir(QStringLiteral("/")).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::System);
    for (const QFileInfo& entry : entries) {
        const QString name = entry.fileName();
        if (privateDirs.contains(name) || name == u"proc" || name == u"dev")
            continue;
        if (entry.isSymLink())
            args << QStringLiteral("--symlink") << entry.symLinkTarget() << entry.absoluteFilePath();
        else
            args << QStringLiteral("--dev-bind") << entry.absoluteFilePath() << entry.absoluteFilePath();
    }
    args << QStringLiteral("--dev-bind") << QStringLiteral("/dev") << QStringLiteral("/dev");
    args << QStringLiteral("--dev-bind") << QStringLiteral("/proc") << QStringLiteral("/proc");
    for (const QString& name : privateDirs)
        args << QStringLiteral("--bind") << root + u'/' + name << u'/' + name;
    args << QStringLiteral("--bind") << root << root; // the test's own files, wherever they live
    return args;
}

QString unavailableReason(const QStringList& privateDirs) {
    if (QStandardPaths::findExecutable(QStringLiteral("bwrap")).isEmpty())
        return QStringLiteral("bubblewrap (bwrap) is not installed");
    QTemporaryDir probeRoot;
    for (const QString& name : privateDirs)
        QDir(probeRoot.path()).mkpath(name);
    QProcess probe;
    probe.start(QStringLiteral("bwrap"), arguments(probeRoot.path(), privateDirs)
                                             << QStringLiteral("/bin/true"));
    if (!probe.waitForFinished(20000) || probe.exitStatus() != QProcess::NormalExit || probe.exitCode() != 0)
        return QStringLiteral("bubblewrap cannot set up a private mount namespace here: ") +
               QString::fromLocal8Bit(probe.readAllStandardError()).trimmed() + probe.errorString();
    return {};
}

} // namespace ScriptSandbox
