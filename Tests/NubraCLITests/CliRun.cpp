#include "CliRun.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTest>

CliHome::CliHome() : m_env(QProcessEnvironment::systemEnvironment()) {
    m_env.insert(QStringLiteral("HOME"), m_dir.path());
    m_env.insert(QStringLiteral("XDG_CONFIG_HOME"), path(QStringLiteral("config")));
    m_env.insert(QStringLiteral("XDG_DATA_HOME"), path(QStringLiteral("data")));
    // A zone away from UTC shows which texts use local time and which UTC.
    m_env.insert(QStringLiteral("TZ"), QStringLiteral("Asia/Shanghai"));
    m_env.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8"));
    m_env.insert(QStringLiteral("LANGUAGE"), QStringLiteral("en"));
    m_env.remove(QStringLiteral("NUBRA_BASE_URL"));
}

QString CliHome::defaultHistoryPath() const {
    return path(QStringLiteral("data/Nubra/history.sqlite3"));
}

void CliHome::writeSettings(const QStringList& lines) const {
    QDir().mkpath(path(QStringLiteral("config/Nubra")));
    QFile file(path(QStringLiteral("config/Nubra/Nubra.conf")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write((QStringLiteral("[General]\n") + lines.join(u'\n') + u'\n').toUtf8());
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
