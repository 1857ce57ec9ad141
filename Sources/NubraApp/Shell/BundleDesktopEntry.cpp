#include "NubraApp/Shell/BundleDesktopEntry.h"

#include "NubraApp/Foundation/DesktopEntryText.h"
#include "NubraCore/Support/DebugLog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QThreadPool>

QString BundleDesktopEntry::entryPath() {
    return QDir::cleanPath(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                           u"/applications/app.nubra.Nubra.desktop");
}

QByteArray BundleDesktopEntry::entryText(const QString& folder) {
    // The packaged entry starts "nubra" from the PATH and names the icon from the icon theme; a
    // bundle is on neither, so both become paths into it.
    QFile packaged(QStringLiteral(":/packaging/app.nubra.Nubra.desktop"));
    if (!packaged.open(QIODevice::ReadOnly))
        return {};
    const QStringView packagedExec(u"Exec=nubra");
    const QString program = folder + u"/bin/nubra";
    const QString exec = DesktopEntryText::escaped(DesktopEntryText::quotedArgument(program));
    QStringList lines = QString::fromUtf8(packaged.readAll()).split(u'\n');
    for (qsizetype i = 0; i < lines.size(); ++i) {
        QString& line = lines[i];
        if (line == u"Icon=app.nubra.Nubra") {
            line = u"Icon=" + DesktopEntryText::escaped(
                                  folder + u"/share/icons/hicolor/scalable/apps/app.nubra.Nubra.svg");
        } else if (line == packagedExec) {
            line = u"Exec=" + exec;
            // The menu hides the entry once the bundle is gone.
            lines.insert(++i, u"TryExec=" + DesktopEntryText::escaped(program));
        } else if (line.startsWith(u"Exec=nubra ")) {
            line = u"Exec=" + exec + line.sliced(packagedExec.size());
        }
    }
    return lines.join(u'\n').toUtf8();
}

BundleDesktopEntry::Outcome BundleDesktopEntry::refresh(const Installation& installation) {
    if (installation.kind != Installation::Kind::bundle)
        return Outcome::notBundle;
    const QByteArray text = entryText(installation.folder);
    const QString path = entryPath();
    QFile current(path);
    if (current.open(QIODevice::ReadOnly) && current.readAll() == text)
        return Outcome::unchanged;
    current.close();
    QSaveFile file(path);
    if (text.isEmpty() || !QDir().mkpath(QFileInfo(path).absolutePath()) ||
        !file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.commit()) {
        nbDebug(QStringLiteral("bundle: cannot write the menu entry ") + path + QStringLiteral(": ") +
                file.errorString());
        return Outcome::failed;
    }
    nbDebug(QStringLiteral("bundle: menu entry ") + path + QStringLiteral(" now starts ") +
            installation.folder);
    return Outcome::written;
}

void BundleDesktopEntry::refreshInBackground() {
    QThreadPool::globalInstance()->start([]() { refresh(Installation::current()); });
}
