#include "NubraPlatform/linux/ProcTreelessApplications.h"

#include "NubraPlatform/linux/DesktopEntryNames.h"

#include <QByteArrayList>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace {

struct KnownBrowser {
    QLatin1String executable;
    QLatin1String desktopId; // the entry its package installs
    QLatin1String name;      // when that entry is not installed
};

// The main executables of the Chromium family as their packages install them.
constexpr std::array knownBrowsers{
    KnownBrowser{QLatin1String("chrome"), QLatin1String("google-chrome"), QLatin1String("Google Chrome")},
    KnownBrowser{QLatin1String("chromium"), QLatin1String("chromium"), QLatin1String("Chromium")},
    KnownBrowser{QLatin1String("chromium-browser"), QLatin1String("chromium-browser"),
                 QLatin1String("Chromium")},
    KnownBrowser{QLatin1String("brave"), QLatin1String("brave-browser"), QLatin1String("Brave")},
    KnownBrowser{QLatin1String("msedge"), QLatin1String("microsoft-edge"), QLatin1String("Microsoft Edge")},
    KnownBrowser{QLatin1String("vivaldi-bin"), QLatin1String("vivaldi-stable"), QLatin1String("Vivaldi")},
    KnownBrowser{QLatin1String("opera"), QLatin1String("opera"), QLatin1String("Opera")},
};

const KnownBrowser* knownBrowser(const QString& executable) {
    const QString name = QFileInfo(executable).fileName();
    // Ubuntu's Chromium snap runs a binary named like Google's.
    if (name == u"chrome" && executable.contains(u"chromium"))
        return &knownBrowsers[1];
    const auto* found = std::find_if(knownBrowsers.begin(), knownBrowsers.end(),
                                     [&](const KnownBrowser& known) { return known.executable == name; });
    return found == knownBrowsers.end() ? nullptr : found;
}

// The crash reporter and the sandbox helper sit beside the browser but are no application.
bool isHelper(const QString& name) {
    return name.contains(u"crashpad") || name.contains(u"sandbox") || name.contains(u"helper");
}

// `root` is the process's view of the file system, so that sandboxed applications are looked at in
// their own mount namespace.
std::optional<TreelessApp::Kind> kindOf(const QString& root, const QString& executable) {
    const QString name = QFileInfo(executable).fileName();
    if (isHelper(name))
        return std::nullopt;
    if (knownBrowser(executable))
        return TreelessApp::Kind::chromiumBrowser;
    if (name.startsWith(u"electron"))
        return TreelessApp::Kind::electron;
    // An Electron bundle carries Chromium's resource packs too; its own app tells it apart.
    const QString folder = root + QFileInfo(executable).path() + u'/';
    if (QFileInfo::exists(folder + u"resources/app.asar") || QFileInfo(folder + u"resources/app").isDir())
        return TreelessApp::Kind::electron;
    if (QFileInfo::exists(folder + u"chrome_100_percent.pak") || QFileInfo::exists(folder + u"resources.pak"))
        return TreelessApp::Kind::chromiumBrowser;
    return std::nullopt;
}

std::optional<QByteArray> readBounded(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return std::nullopt;
    QByteArray bytes = file.read(ProcTreelessApplications::maxProcFileBytes);
    if (file.error() != QFileDevice::NoError)
        return std::nullopt;
    return bytes;
}

// Where a symbolic link points, without following it further; empty when it cannot be read.
QString linkTarget(const QString& path) {
    std::array<char, 4096> buffer{};
    const ssize_t length = ::readlink(QFile::encodeName(path).constData(), buffer.data(), buffer.size());
    if (length <= 0 || size_t(length) == buffer.size())
        return {};
    return QFile::decodeName(QByteArray(buffer.data(), length));
}

// The real user id on the "Uid:" line of /proc/PID/status.
std::optional<uint> realUser(const QString& statusPath) {
    const std::optional<QByteArray> status = readBounded(statusPath);
    if (!status)
        return std::nullopt;
    for (const QByteArray& line : status->split('\n')) {
        if (!line.startsWith("Uid:"))
            continue;
        const QByteArrayList fields = line.mid(4).simplified().split(' ');
        bool ok = false;
        const uint uid = fields.constFirst().toUInt(&ok);
        return ok ? std::optional<uint>(uid) : std::nullopt;
    }
    return std::nullopt;
}

// The words of a command line. Chromium rewrites the command line of its children into one string with
// blanks between the arguments, so blanks separate words as well as the NULs.
QByteArrayList words(const QByteArray& cmdline) {
    QByteArrayList result;
    for (const QByteArray& argument : cmdline.split('\0')) {
        for (const QByteArray& word : argument.split(' ')) {
            if (!word.isEmpty())
                result << word;
        }
    }
    return result;
}

bool hasFlag(const QByteArrayList& words, QByteArrayView flag) {
    return std::any_of(words.begin(), words.end(), [flag](const QByteArray& word) {
        return word.startsWith(flag) && (word.size() == flag.size() || word.at(flag.size()) == '=');
    });
}

// "signal-desktop" -> "Signal Desktop".
QString capitalised(QString executable) {
    QStringList parts = executable.replace(u'_', u'-').split(u'-', Qt::SkipEmptyParts);
    for (QString& part : parts)
        part[0] = part[0].toUpper();
    return parts.join(u' ');
}

} // namespace

ProcTreelessApplications::ProcTreelessApplications(DesktopEntryNames& names, QString procRoot)
    : m_names(names), m_procRoot(std::move(procRoot)) {}

QList<TreelessApp> ProcTreelessApplications::running() {
    QList<qint64> processIds;
    if (DIR* table = ::opendir(QFile::encodeName(m_procRoot).constData())) {
        while (const dirent* entry = ::readdir(table)) {
            bool number = false;
            const qint64 id = QByteArray(entry->d_name).toLongLong(&number);
            if (number && id > 0)
                processIds << id;
        }
        ::closedir(table);
    }
    std::sort(processIds.begin(), processIds.end());

    KindCache kinds;
    QList<TreelessApp> apps;
    QSet<QString> names;
    for (const qint64 id : std::as_const(processIds)) {
        std::optional<TreelessApp> app = inspect(id, kinds);
        if (app && !names.contains(app->name)) {
            names.insert(app->name);
            apps << std::move(*app);
        }
    }
    return apps;
}

std::optional<TreelessApp> ProcTreelessApplications::application(qint64 processId) {
    if (processId <= 0)
        return std::nullopt;
    KindCache kinds;
    return inspect(processId, kinds);
}

std::optional<TreelessApp> ProcTreelessApplications::inspect(qint64 processId, KindCache& kinds) {
    const QString process = m_procRoot + u'/' + QString::number(processId) + u'/';
    QString executable = linkTarget(process + u"exe");
    // A program upgraded while it runs.
    if (executable.endsWith(u" (deleted)"))
        executable.chop(10);
    if (executable.isEmpty())
        return std::nullopt;
    auto kind = kinds.constFind(executable);
    if (kind == kinds.cend())
        kind = kinds.insert(executable, kindOf(process + u"root", executable));
    if (!*kind || realUser(process + u"status") != ::getuid())
        return std::nullopt;

    const std::optional<QByteArray> cmdline = readBounded(process + u"cmdline");
    if (!cmdline)
        return std::nullopt;
    const QByteArrayList arguments = words(*cmdline);
    // A renderer, GPU or utility process of one.
    if (std::any_of(arguments.begin(), arguments.end(),
                    [](const QByteArray& word) { return word.startsWith("--type="); }))
        return std::nullopt;
    if (hasFlag(arguments, "--force-renderer-accessibility"))
        return std::nullopt;
    const std::optional<QByteArray> environment = readBounded(process + u"environ");
    if (!environment || environment->split('\0').contains("ACCESSIBILITY_ENABLED=1"))
        return std::nullopt;
    return TreelessApp{displayName(executable), **kind, processId};
}

QString ProcTreelessApplications::displayName(const QString& executable) {
    const QString name = QFileInfo(executable).fileName();
    const KnownBrowser* known = knownBrowser(executable);
    const QString id = known ? QString(known->desktopId) : name;
    const QString entry = m_names.displayName({id, name, name}, DesktopEntryNames::interfaceLocales());
    if (!entry.isEmpty())
        return entry;
    if (known)
        return known->name;
    return capitalised(name);
}
