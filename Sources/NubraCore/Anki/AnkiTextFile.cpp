#include "NubraCore/Anki/AnkiTextFile.h"

#include "NubraCore/History/HistoryExporter.h"
#include "NubraCore/Support/PrivateFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QStandardPaths>

namespace {

// Header values end at the line's end; a line break in a deck name would start a note.
QString headerValue(const QString& value) {
    QString flat = value;
    flat.replace(u'\r', u' ');
    flat.replace(u'\n', u' ');
    return flat;
}

QString field(const QString& value) {
    const bool quoted =
        value.contains(u'\t') || value.contains(u'\n') || value.contains(u'\r') || value.contains(u'"');
    if (!quoted)
        return value;
    QString doubled = value;
    doubled.replace(u'"', QStringLiteral("\"\""));
    return u'"' + doubled + u'"';
}

QString fileNamePart(const QString& text) {
    QString part;
    for (const QChar c : text.trimmed())
        part += (c.isLetterOrNumber() || c == u'-' || c == u'_' || c == u' ' || c == u'.') ? c : u'_';
    if (part.isEmpty() || part.startsWith(u'.'))
        part.prepend(u'_');
    return part.left(60);
}

// Pending notes may be written by two deliveries at once.
QMutex appendMutex;

} // namespace

namespace AnkiTextFile {

QByteArray header(const AnkiTarget& target) {
    return QStringLiteral("#separator:tab\n#html:true\n#deck:%1\n#notetype:%2\n#tags column:3\n")
        .arg(headerValue(target.deck), headerValue(target.noteType))
        .toUtf8();
}

QByteArray line(const QStringList& fields) {
    QStringList written;
    written.reserve(fields.size());
    for (const QString& value : fields)
        written << field(value);
    return written.join(u'\t').toUtf8() + '\n';
}

QByteArray document(const QList<AnkiNote>& notes, const AnkiTarget& target) {
    QByteArray out = header(target);
    for (const AnkiNote& note : notes)
        out += line({note.front(), note.back, QString::fromLatin1(tag)});
    return out;
}

QString pendingFolder() {
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
}

QString pendingPath(const QString& folder, const AnkiTarget& target) {
    return QDir(folder).filePath(
        QStringLiteral("anki-notes-%1-%2.txt").arg(fileNamePart(target.deck), fileNamePart(target.noteType)));
}

std::variant<Appended, QString> append(const QString& path, const QList<AnkiNote>& notes,
                                       const AnkiTarget& target) {
    QMutexLocker lock(&appendMutex);
    // The notes are lookups, as private as the history beside them.
    PrivateFiles::ensureFolder(QFileInfo(path).absolutePath());
    PrivateFiles::ensureFile(path);
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite | QIODevice::Append))
        return file.errorString();
    // Notes wait here only until they are imported; the file stays small enough to read whole.
    file.seek(0);
    QByteArray present = '\n' + file.readAll();
    Appended appended;
    QByteArray out = file.size() == 0 ? header(target) : QByteArray();
    for (const AnkiNote& note : notes) {
        const QByteArray text = line({note.front(), note.back, QString::fromLatin1(tag)});
        const QByteArray needle = '\n' + text;
        if (present.contains(needle)) {
            ++appended.alreadyThere;
            continue;
        }
        present += text;
        out += text;
        ++appended.written;
    }
    if (file.write(out) != out.size() || !file.flush())
        return file.errorString();
    return appended;
}

QString suggestedFileName(const QDateTime& now) {
    QString stamp = HistoryExporter::displayFormatter().string(now);
    stamp.replace(u':', u'-');
    return QStringLiteral("Nubra-Anki-") + stamp + QStringLiteral(".txt");
}

} // namespace AnkiTextFile
