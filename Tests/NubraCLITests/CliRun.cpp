#include "CliRun.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTest>

CliHome::CliHome() : m_env(QProcessEnvironment::systemEnvironment()) {
    m_env.insert(u"HOME"_qs, m_dir.path());
    m_env.insert(u"XDG_CONFIG_HOME"_qs, path(u"config"_qs));
    m_env.insert(u"XDG_DATA_HOME"_qs, path(u"data"_qs));
    // A zone away from UTC shows which texts use local time and which UTC.
    m_env.insert(u"TZ"_qs, u"Asia/Shanghai"_qs);
    m_env.insert(u"LC_ALL"_qs, u"C.UTF-8"_qs);
    m_env.insert(u"LANGUAGE"_qs, u"en"_qs);
    m_env.remove(u"NUBRA_BASE_URL"_qs);
}

QString CliHome::defaultHistoryPath() const {
    return path(u"data/Nubra/history.sqlite3"_qs);
}

void CliHome::writeSettings(const QStringList& lines) const {
    QDir().mkpath(path(u"config/Nubra"_qs));
    QFile file(path(u"config/Nubra/Nubra.conf"_qs));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write((u"[General]\n"_qs + lines.join(u'\n') + u'\n').toUtf8());
}

CliHome::Result CliHome::run(const QStringList& arguments) const {
    QProcess process;
    process.setProcessEnvironment(m_env);
    process.start(QStringLiteral(NUBRA_CLI), arguments);
    Result result;
    if (!process.waitForStarted(10'000) || !process.waitForFinished(30'000)) {
        process.kill();
        process.waitForFinished();
        return result;
    }
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    return result;
}
