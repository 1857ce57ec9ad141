#include "NubraCore/Update/Installation.h"

#include <QCoreApplication>
#include <QFileInfo>

Installation Installation::of(const QString& executablePath) {
    const QString resolved = QFileInfo(executablePath).canonicalFilePath();
    if (resolved.isEmpty())
        return {};
    if (resolved.startsWith(QStringLiteral("/usr/")))
        return {Kind::packageManaged, {}};

    const QFileInfo binFolder(QFileInfo(resolved).absolutePath());
    const QFileInfo root(binFolder.absolutePath());
    const bool bundleShaped =
        binFolder.fileName() == u"bin" && root.fileName() == u"Nubra" &&
        QFileInfo(root.absoluteFilePath() + QStringLiteral("/bin/nubra-glossd")).isExecutable();
    return bundleShaped ? Installation{Kind::bundle, root.absoluteFilePath()} : Installation{};
}

Installation Installation::current() {
    return of(QCoreApplication::applicationFilePath());
}
