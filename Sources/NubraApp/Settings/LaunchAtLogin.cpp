#include "NubraApp/Settings/LaunchAtLogin.h"

#include "NubraApp/Foundation/DesktopEntryText.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

namespace {

QString unescapeValue(const QString& text) {
    QString plain;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i] != u'\\' || i + 1 == text.size()) {
            plain += text[i];
            continue;
        }
        const QChar next = text[++i];
        plain += next == u's'   ? QChar(u' ')
                 : next == u'n' ? QChar(u'\n')
                 : next == u't' ? QChar(u'\t')
                 : next == u'r' ? QChar(u'\r')
                                : next;
    }
    return plain;
}

// The program an Exec value starts (after the string unescaping), quoted or not.
QString firstArgument(const QString& exec) {
    QString argument;
    const bool quoted = exec.startsWith(u'"');
    for (qsizetype i = quoted ? 1 : 0; i < exec.size(); ++i) {
        const QChar c = exec[i];
        if (quoted && c == u'"')
            break;
        if (!quoted && c == u' ')
            break;
        if (quoted && c == u'\\' && i + 1 < exec.size())
            argument += exec[++i];
        else if (c == u'%' && i + 1 < exec.size() && exec[i + 1] == u'%')
            argument += exec[++i];
        else
            argument += c;
    }
    return argument;
}

bool samePath(const QString& a, const QString& b) {
    if (a == b)
        return true;
    const QString canonical = QFileInfo(a).canonicalFilePath();
    return !canonical.isEmpty() && canonical == QFileInfo(b).canonicalFilePath();
}

} // namespace

LaunchAtLogin::LaunchAtLogin(QString program) : m_program(std::move(program)) {}

QString LaunchAtLogin::defaultProgram() {
    return QCoreApplication::applicationFilePath();
}

QString LaunchAtLogin::autostartDirectory() {
    return QDir::cleanPath(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                           u"/autostart");
}

QString LaunchAtLogin::entryPath() const {
    return autostartDirectory() + u'/' + QString::fromLatin1(entryFileName);
}

QByteArray LaunchAtLogin::entryText() const {
    const QString text = u"[Desktop Entry]\n"
                         u"Type=Application\n"
                         u"Name=Nubra\n"
                         u"Icon=app.nubra.Nubra\n"
                         u"Exec=" +
                         DesktopEntryText::escaped(DesktopEntryText::quotedArgument(m_program)) +
                         u"\nTryExec=" + DesktopEntryText::escaped(m_program) +
                         u"\nX-GNOME-Autostart-enabled=true\n";
    return text.toUtf8();
}

bool LaunchAtLogin::isEnabled() const {
    QFile file(entryPath());
    if (!file.open(QIODevice::ReadOnly))
        return false;
    bool inEntry = false;
    bool startsThisProgram = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(u'[')) {
            inEntry = line == u"[Desktop Entry]";
            continue;
        }
        const qsizetype equals = line.indexOf(u'=');
        if (!inEntry || equals < 0)
            continue;
        const QString key = line.left(equals).trimmed();
        const QString value = unescapeValue(line.mid(equals + 1).trimmed());
        // GNOME honours its own switch as well as the standard one.
        if ((key == u"Hidden" && value == u"true") ||
            (key == u"X-GNOME-Autostart-enabled" && value == u"false"))
            return false;
        if (key == u"Exec")
            startsThisProgram = samePath(firstArgument(value), m_program);
    }
    return startsThisProgram;
}

std::optional<QString> LaunchAtLogin::setEnabled(bool enabled) const {
    const QString path = entryPath();
    if (!enabled) {
        QFile file(path);
        if (!file.exists() || file.remove())
            return std::nullopt;
        return file.errorString();
    }
    const QString directory = autostartDirectory();
    if (!QDir().mkpath(directory))
        return QStringLiteral("cannot create the folder %1").arg(directory);
    QSaveFile file(path);
    const QByteArray text = entryText();
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.commit())
        return file.errorString();
    return std::nullopt;
}
