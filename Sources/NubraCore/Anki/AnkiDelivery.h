#pragma once

#include "NubraCore/Anki/AnkiConnect.h"
#include "NubraCore/Anki/AnkiNote.h"
#include "NubraCore/Anki/AnkiTextFile.h"

#include <QList>
#include <QObject>

#include <optional>

// What became of the notes of one delivery.
struct AnkiReport {
    int added = 0;
    int duplicates = 0;
    int failed = 0;
    // The file the notes were appended to because Anki was not running, how many, how many it held
    // already, and why it could not be written.
    std::optional<QString> filePath;
    int filed = 0;
    int alreadyFiled = 0;
    std::optional<QString> fileError;
    // The first failure of a call to Anki, other than it not running.
    std::optional<AnkiError> error;
    AnkiTarget target;

    // One sentence for the user, Chinese or English.
    QString message() const;
};

// Sends notes to Anki: the note type's fields are asked for and filled by name, the deck is made when
// missing, then each note is added; a note Anki already has is counted, not doubled. While Anki is not
// running the notes are appended to the pending text file instead, off the GUI thread, so none is
// lost. Emits finished() once; destroying it first stops everything.
class AnkiDelivery : public QObject {
    Q_OBJECT
public:
    AnkiDelivery(AnkiConnect client, QString pendingFolder, QObject* parent = nullptr);

    void send(QList<AnkiNote> notes, AnkiTarget target);

signals:
    void finished(const AnkiReport& report);

private:
    void addNext(const QStringList& fieldNames);
    // Anki is not there: the notes from `from` on go to the file.
    void fileRemaining(qsizetype from);
    void fail(const AnkiError& error);

    AnkiConnect m_client;
    QString m_pendingFolder;
    QList<AnkiNote> m_notes;
    qsizetype m_next = 0;
    AnkiReport m_report;
};
