#pragma once

#include <QDateTime>
#include <QHash>
#include <QString>
#include <QStringList>

#include <memory>
#include <mutex>
#include <optional>

// What a window says about the application it belongs to. Any of them may be empty.
struct WindowAppHints {
    QString applicationId; // _GTK_APPLICATION_ID or _KDE_NET_WM_DESKTOP_FILE: a desktop file id
    QString wmClass;       // WM_CLASS class part ("Mousepad"); Flatpak sets the app id here
    QString wmInstance;    // WM_CLASS instance part ("mousepad")
};

// Finds the display name people know an application by: the Name of its installed .desktop entry,
// matched by the window's hints. The applications folders are indexed on a worker thread (at first use,
// and again when one of them changes and a lookup misses); until an index is ready lookups answer
// empty at once, so a caller on the GUI thread never waits for the disk. Each matched entry is read
// once. Safe from any thread.
class DesktopEntryNames {
public:
    // Entry files larger than this are refused: a real one is a few kilobytes.
    static constexpr qint64 maxEntryBytes = 64 * 1024;
    // A folder with more files than this is indexed only up to it.
    static constexpr int maxIndexedFiles = 4000;

    // The XDG applications folders in precedence order, Flatpak's exported entries included.
    static QStringList defaultDirectories();
    // The locales to ask displayName() for so that names follow the interface language.
    static QStringList interfaceLocales();

    explicit DesktopEntryNames(QStringList directories = defaultDirectories());

    // Starts indexing now when nothing is indexed yet, so the first lookup finds names.
    void prefetch();

    // The entry's Name for the first matching locale ("zh_CN" tries Name[zh_CN], then Name[zh]), else
    // its plain Name; empty when no entry matches or the folders are still being indexed.
    QString displayName(const WindowAppHints& hints, const QStringList& locales);

    // Values of the [Desktop Entry] group of one file, escapes resolved; nothing for a file that
    // cannot be read, is not a regular file, is larger than maxEntryBytes or has no such group.
    static std::optional<QHash<QString, QString>> readEntry(const QString& path);

private:
    struct Index {
        QHash<QString, QString> byId;       // lower-case desktop file id -> path
        QHash<QString, QString> byWmClass;  // lower-case StartupWMClass -> path
        QHash<QString, QString> byLastPart; // last part of a reverse-DNS id -> path
        QList<QDateTime> stamps;            // the folders' modification times when indexed
    };
    // Shared with the indexing worker, which may outlive this object.
    struct State {
        QStringList directories;
        std::mutex lock;
        std::optional<Index> index;
        bool indexing = false;
        QHash<QString, QHash<QString, QString>> names; // path -> Name keys of that entry
    };

    static Index buildIndex(const QStringList& directories);
    static QList<QDateTime> stampsOf(const QStringList& directories);
    static QString match(const Index& index, const WindowAppHints& hints);
    static const QHash<QString, QString>& namesLocked(State& state, const QString& path);
    static void startIndexingLocked(const std::shared_ptr<State>& state);

    std::shared_ptr<State> m_state;
};
