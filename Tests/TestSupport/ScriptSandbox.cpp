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

int runBash(const QStringList& sandboxArguments, const QString& script, const QString& root,
            const QStringList& assignments) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("PATH"),
                       root + QStringLiteral("/bin:") + environment.value(QStringLiteral("PATH")));
    environment.insert(QStringLiteral("NUBRA_TEST_LOG"), root + QStringLiteral("/log"));
    for (const QString& assignment : assignments)
        environment.insert(assignment.section(u'=', 0, 0), assignment.section(u'=', 1));

    QProcess bash;
    bash.setProcessEnvironment(environment);
    bash.setProcessChannelMode(QProcess::ForwardedChannels);
    bash.start(QStringLiteral("bwrap"), QStringList(sandboxArguments)
                                            << QStringLiteral("/bin/bash") << script);
    if (!bash.waitForFinished(60000)) {
        bash.kill();
        bash.waitForFinished();
        return -2;
    }
    return bash.exitStatus() == QProcess::NormalExit ? bash.exitCode() : -3;
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
