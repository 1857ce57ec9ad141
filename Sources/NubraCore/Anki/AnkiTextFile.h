#pragma once

#include "NubraCore/Anki/AnkiNote.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

#include <variant>

// Where notes go and what they go as.
struct AnkiTarget {
    QString deck;
    QString noteType;

    friend bool operator==(const AnkiTarget&, const AnkiTarget&) = default;
};

// Notes as a text file Anki imports (File › Import): UTF-8, header lines naming the separator (tab),
// HTML fields, the deck and the note type and the tags column, then one note per line: front, back,
// the tag "nubra". A field holding a tab, a line break or a quotation mark is put in quotation marks
// with its own ones doubled, as Anki's importer reads them.
namespace AnkiTextFile {

inline constexpr const char* tag = "nubra";

QByteArray header(const AnkiTarget& target);
QByteArray line(const QStringList& fields);
// Header and the notes' lines.
QByteArray document(const QList<AnkiNote>& notes, const AnkiTarget& target);

// The file notes wait in while Anki is not running, one per deck and note type:
// <data folder>/anki-notes-<deck>-<note type>.txt (~/.local/share/Nubra/ on Linux), characters a file
// name cannot hold replaced by "_".
QString pendingPath(const QString& folder, const AnkiTarget& target);
QString pendingFolder();

struct Appended {
    int written = 0;
    int alreadyThere = 0; // the same line is in the file, from an earlier click
};
// Appends the notes to `path`, starting it with the header when it is new or empty, and leaves out a
// note the file already holds; the file and its folder are made private to the user. Blocking file
// I/O: call it off the GUI thread. Answers what was written, or why it failed.
std::variant<Appended, QString> append(const QString& path, const QList<AnkiNote>& notes,
                                       const AnkiTarget& target);

// "Nubra-Anki-<display time with ':' as '-'>.txt", for the history's export.
QString suggestedFileName(const QDateTime& now);

} // namespace AnkiTextFile
