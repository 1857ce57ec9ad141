#include "NubraPlatform/linux/DesktopEntryNames.h"

#include "NubraCore/Vocabulary/L10n.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QSet>
#include <QStandardPaths>
#include <QThreadPool>

namespace {

// Entries this many folders below applications/ are ignored; real trees are one level deep at most.
constexpr int maxDepth = 3;
// Matched entries whose names are kept; a session meets far fewer applications.
constexpr qsizetype maxCachedEntries = 256;

QString unescaped(QStringView value) {
    QString out;
    out.reserve(value.size());
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] != u'\\' || i + 1 == value.size()) {
            out += value[i];
            continue;
        }
        switch (value[++i].unicode()) {
        case 's':
            out += u' ';
            break;
        case 'n':
            out += u'\n';
            break;
        case 't':
            out += u'\t';
            break;
        case 'r':
            out += u'\r';
            break;
        default:
            out += value[i];
        }
    }
    return out;
}

// Name keys to try for one locale, most specific first: lang_COUNTRY@MODIFIER, lang_COUNTRY,
// lang@MODIFIER, lang. An encoding part (".UTF-8") never takes part in matching.
QStringList localizedKeys(QString locale) {
    locale.replace(u'-', u'_');
    QString modifier;
    if (const qsizetype at = locale.indexOf(u'@'); at >= 0) {
        modifier = locale.mid(at);
        locale.truncate(at);
    }
    if (const qsizetype dot = locale.indexOf(u'.'); dot >= 0)
        locale.truncate(dot);
    const QString lang = locale.section(u'_', 0, 0);
    QStringList keys;
    if (!modifier.isEmpty() && lang != locale)
        keys << locale + modifier;
    if (lang != locale)
        keys << locale;
    if (!modifier.isEmpty())
        keys << lang + modifier;
    if (!lang.isEmpty())
        keys << lang;
    return keys;
}

} // namespace

QStringList DesktopEntryNames::defaultDirectories() {
    QStringList dirs = QStandardPaths::standardLocations(QStandardPaths::ApplicationsLocation);
    // Flatpak's profile script adds its exports to XDG_DATA_DIRS, but not every session runs it.
    dirs << QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                QStringLiteral("/flatpak/exports/share/applications")
         << QStringLiteral("/var/lib/flatpak/exports/share/applications");
    QStringList unique;
    for (const QString& dir : std::as_const(dirs)) {
        const QString clean = QDir::cleanPath(dir);
        if (!clean.isEmpty() && !unique.contains(clean))
            unique << clean;
    }
    return unique;
}

QStringList DesktopEntryNames::interfaceLocales() {
    // Application names follow the interface language so the history reads like the text around it;
    // the plain Name of an entry is its English one by convention.
    if (!L10n::isZh())
        return {};
    for (const QString& tag : QLocale::system().uiLanguages()) {
        if (tag.startsWith(u"zh"))
            return {QLocale(tag).name()}; // "zh-Hans-CN" -> "zh_CN", the form entries use
    }
    return {QStringLiteral("zh_CN")};
}

DesktopEntryNames::DesktopEntryNames(QStringList directories) : m_state(std::make_shared<State>()) {
    m_state->directories = std::move(directories);
}

std::optional<QHash<QString, QString>> DesktopEntryNames::readEntry(const QString& path) {
    // A FIFO or device named *.desktop would block or never end; only regular files are read.
    const QFileInfo info(path);
    if (!info.isFile() || info.size() > maxEntryBytes)
        return std::nullopt;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray bytes = file.read(maxEntryBytes + 1); // the file may have grown since the check
    if (bytes.size() > maxEntryBytes)
        return std::nullopt;

    QHash<QString, QString> values;
    bool inMainGroup = false;
    for (const QString& rawLine : QString::fromUtf8(bytes).split(u'\n')) {
        const QStringView line = QStringView(rawLine).trimmed();
        if (line.isEmpty() || line.startsWith(u'#'))
            continue;
        if (line.startsWith(u'[')) {
            // Only the first group matters; later ones are actions whose Names must not win.
            if (inMainGroup)
                break;
            inMainGroup = line == u"[Desktop Entry]";
            continue;
        }
        const qsizetype equals = line.indexOf(u'=');
        if (!inMainGroup || equals <= 0)
            continue;
        const QString key = line.left(equals).trimmed().toString();
        if (!values.contains(key)) // the first of duplicate keys counts
            values.insert(key, unescaped(line.mid(equals + 1).trimmed()));
    }
    if (!values.contains(QStringLiteral("Type")) && !values.contains(QStringLiteral("Name")))
        return std::nullopt; // no [Desktop Entry] group at all
    return values;
}

QList<QDateTime> DesktopEntryNames::stampsOf(const QStringList& directories) {
    QList<QDateTime> stamps;
    for (const QString& dir : directories)
        stamps << QFileInfo(dir).lastModified();
    return stamps;
}

DesktopEntryNames::Index DesktopEntryNames::buildIndex(const QStringList& directories) {
    Index index;
    index.stamps = stampsOf(directories);
    QSet<QString> seenIds;
    for (const QString& dir : directories) {
        const QString root = QDir(dir).absolutePath() + u'/';
        QDirIterator it(dir, {QStringLiteral("*.desktop")}, QDir::Files | QDir::Readable,
                        QDirIterator::Subdirectories);
        for (int files = 0; it.hasNext() && files < maxIndexedFiles; ++files) {
            const QString path = it.next();
            QString relative = path.mid(root.size());
            if (relative.count(u'/') > maxDepth)
                continue;
            // The desktop file id: the path below applications/ with "/" as "-", without ".desktop".
            relative.chop(8);
            const QString id = relative.replace(u'/', u'-').toLower();
            // The earlier folder wins for an id, even when its entry hides the application.
            if (seenIds.contains(id))
                continue;
            seenIds.insert(id);
            const auto entry = readEntry(path);
            if (!entry || entry->value(QStringLiteral("Type")) != u"Application" ||
                entry->value(QStringLiteral("Hidden")) == u"true")
                continue;
            index.byId.insert(id, path);
            // Reverse-DNS ids ("org.xfce.mousepad") are also found by their last part, which is what an
            // application that did not register its id calls itself.
            if (const QString last = id.section(u'.', -1); last != id && !index.byLastPart.contains(last))
                index.byLastPart.insert(last, path);
            const QString wmClass = entry->value(QStringLiteral("StartupWMClass")).toLower();
            if (!wmClass.isEmpty() && !index.byWmClass.contains(wmClass))
                index.byWmClass.insert(wmClass, path);
        }
    }
    return index;
}

void DesktopEntryNames::startIndexingLocked(const std::shared_ptr<State>& state) {
    if (state->indexing)
        return;
    state->indexing = true;
    QThreadPool::globalInstance()->start([state] {
        Index index = buildIndex(state->directories);
        std::lock_guard guard(state->lock);
        state->index = std::move(index);
        state->names.clear(); // entries may have changed along with their folders
        state->indexing = false;
    });
}

QString DesktopEntryNames::match(const Index& index, const WindowAppHints& hints) {
    const auto lookup = [](const QHash<QString, QString>& table, const QString& key) {
        return key.isEmpty() ? QString() : table.value(key.toLower());
    };
    // The application's own id is exact; an entry that names its window class is next, and a desktop
    // file named after the class (or instance) is the usual convention otherwise.
    QString id = hints.applicationId;
    if (id.endsWith(u".desktop"))
        id.chop(8);
    for (const QString& path : {lookup(index.byId, id), lookup(index.byWmClass, hints.wmClass),
                                lookup(index.byWmClass, hints.wmInstance), lookup(index.byId, hints.wmClass),
                                lookup(index.byId, hints.wmInstance), lookup(index.byLastPart, id),
                                lookup(index.byLastPart, hints.wmClass)}) {
        if (!path.isEmpty())
            return path;
    }
    return {};
}

const QHash<QString, QString>& DesktopEntryNames::namesLocked(State& state, const QString& path) {
    if (auto found = state.names.constFind(path); found != state.names.cend())
        return *found;
    if (state.names.size() >= maxCachedEntries)
        state.names.clear();
    QHash<QString, QString> names;
    if (const auto entry = readEntry(path)) {
        for (auto it = entry->cbegin(); it != entry->cend(); ++it) {
            if (it.key() == u"Name" || it.key().startsWith(u"Name["))
                names.insert(it.key(), it.value());
        }
    }
    return *state.names.insert(path, names);
}

void DesktopEntryNames::prefetch() {
    std::lock_guard guard(m_state->lock);
    if (!m_state->index)
        startIndexingLocked(m_state);
}

QString DesktopEntryNames::displayName(const WindowAppHints& hints, const QStringList& locales) {
    State& state = *m_state;
    std::lock_guard guard(state.lock);
    if (!state.index) {
        startIndexingLocked(m_state);
        return {};
    }
    const QString path = match(*state.index, hints);
    if (path.isEmpty()) {
        // A miss may be an application installed since the index was built; the next lookup sees it.
        if (stampsOf(state.directories) != state.index->stamps)
            startIndexingLocked(m_state);
        return {};
    }
    const QHash<QString, QString>& names = namesLocked(state, path);
    for (const QString& locale : locales) {
        for (const QString& key : localizedKeys(locale)) {
            const QString name = names.value(QStringLiteral("Name[%1]").arg(key));
            if (!name.isEmpty())
                return name;
        }
    }
    return names.value(QStringLiteral("Name"));
}
