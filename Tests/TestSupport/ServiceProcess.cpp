#include "TestSupport/ServiceProcess.h"

#include <QDeadlineTimer>
#include <QRegularExpression>

QUrl startListening(QProcess& process, const QString& program, QStringList arguments) {
    process.setReadChannel(QProcess::StandardError);
    process.start(program, arguments << QStringLiteral("--port") << QStringLiteral("0"));
    static const QRegularExpression announced(QStringLiteral("listening on (http://[0-9.]+:[0-9]+)"));
    QString said;
    const QDeadlineTimer deadline(20000);
    while (!deadline.hasExpired() && process.state() != QProcess::NotRunning) {
        process.waitForReadyRead(100);
        said += QString::fromUtf8(process.readAllStandardError());
        if (const auto match = announced.match(said); match.hasMatch())
            return QUrl(match.captured(1));
    }
    return {};
}
