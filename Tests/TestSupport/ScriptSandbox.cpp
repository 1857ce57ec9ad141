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

bool writeStandIn(const QString& root, const QString& name, const QByteArray& body) {
    return writeFile(root + u"/bin/"_qs + name,
                     "#!/bin/bash\necho \"$*\" >> \"$NUBRA_TEST_LOG/" + name.toUtf8() + "\"\n" + body, true);
}

QString standInLog(const QString& root, const QString& name) {
    const QString file = root + u"/log/"_qs + name;
    return QFileInfo::exists(file) ? QString::fromUtf8(readFile(file)) : QString();
}

int runBash(const QStringList& sandboxArguments, const QString& script, const QString& root,
            const QStringList& assignments, const QStringList& scriptArguments) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"PATH"_qs, root + u"/bin:"_qs + environment.value(u"PATH"_qs));
    environment.insert(u"NUBRA_TEST_LOG"_qs, root + u"/log"_qs);
    for (const QString& assignment : assignments)
        environment.insert(assignment.section(u'=', 0, 0), assignment.section(u'=', 1));

    QProcess bash;
    bash.setProcessEnvironment(environment);
    bash.setProcessChannelMode(QProcess::ForwardedChannels);
    bash.start(u"bwrap"_qs, QStringList(sandboxArguments) << u"/bin/bash"_qs << script << scriptArguments);
    if (!bash.waitForFinished(60000)) {
        bash.kill();
        bash.waitForFinished();
        return -2;
    }
    return bash.exitStatus() == QProcess::NormalExit ? bash.exitCode() : -3;
}

QStringList arguments(const QString& root, const QStringList& privateDirs) {
    QStringList args{u"--die-with-parent"_qs};
    const auto entries = QDir(u"/"_qs).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::System);
    for (const QFileInfo& entry : entries) {
        const QString name = entry.fileName();
        if (privateDirs.contains(name) || name == u"proc" || name == u"dev")
            continue;
        if (entry.isSymLink())
            args << u"--symlink"_qs << entry.symLinkTarget() << entry.absoluteFilePath();
        else
            args << u"--dev-bind"_qs << entry.absoluteFilePath() << entry.absoluteFilePath();
    }
    args << u"--dev-bind"_qs << u"/dev"_qs << u"/dev"_qs;
    args << u"--dev-bind"_qs << u"/proc"_qs << u"/proc"_qs;
    for (const QString& name : privateDirs)
        args << u"--bind"_qs << root + u'/' + name << u'/' + name;
    args << u"--bind"_qs << root << root; // the test's own files, wherever they live
    return args;
}

QString unavailableReason(const QStringList& privateDirs) {
    if (QStandardPaths::findExecutable(u"bwrap"_qs).isEmpty())
        return u"bubblewrap (bwrap) is not installed"_qs;
    QTemporaryDir probeRoot;
    for (const QString& name : privateDirs)
        QDir(probeRoot.path()).mkpath(name);
    QProcess probe;
    probe.start(u"bwrap"_qs, arguments(probeRoot.path(), privateDirs) << u"/bin/true"_qs);
    if (!probe.waitForFinished(20000) || probe.exitStatus() != QProcess::NormalExit || probe.exitCode() != 0)
        return u"bubblewrap cannot set up a private mount namespace here: "_qs +
               QString::fromLocal8Bit(probe.readAllStandardError()).trimmed() + probe.errorString();
    return {};
}

} // namespace ScriptSandbox
