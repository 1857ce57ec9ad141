#pragma once

#include "NubraCore/History/HistoryRecord.h"

#include <QString>
#include <QStringList>

// A study card made from one lookup, as the HTML Anki shows. The front asks with the sentence the text
// was read in (the text in bold) and the text itself; the back answers with the explanation. Every
// piece of the lookup is escaped, so "<", "&" and quotes read literally on the card.
struct AnkiNote {
    QString word;     // the looked-up text
    QString sentence; // the sentence around it, the text in <b>…</b>
    QString back;     // explanation, contextual meaning and where and when it was read

    static AnkiNote from(const HistoryRecord& record);
    // From a record of the history, which keeps only the first characters of the text before: when
    // that cut may have left a gap before the selection, the sentence starts at the selection.
    static AnkiNote fromStored(const HistoryRecord& record);

    // The sentence, then the text on its own; only the text when it was read without context.
    QString front() const;

    // The values for a note type's fields, in their order. Fields are recognised by name, case and
    // blanks aside: "Front" takes the whole front, "Word"/"Expression" the text and "Sentence"/"Example"
    // the sentence, "Back"/"Meaning"/"Definition" the back (and their Chinese names). What no field is
    // named for goes to the first fields left empty, so any two-field type reads as Front/Back; a
    // one-field type gets front and back divided by a rule. Other fields stay empty.
    QStringList fieldsFor(const QStringList& fieldNames) const;

    friend bool operator==(const AnkiNote&, const AnkiNote&) = default;
};

namespace AnkiSentence {

// The sentence `text` was read in: the end of `before` from the last sentence end (".", "!", "?" before
// a blank; "。", "！", "？", "；" anywhere; a line break), and the start of `after` up to the next one.
struct Cut {
    QString before;
    QString after;
};
Cut around(const QString& before, const QString& after);

} // namespace AnkiSentence
