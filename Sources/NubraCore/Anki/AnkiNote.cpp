#include "NubraCore/Anki/AnkiNote.h"

#include "NubraCore/Lookup/LookupHistory.h"
#include "NubraCore/Lookup/SelectionLimit.h"

#include <QRegularExpression>

#include <optional>

namespace {

bool isWideStop(QChar c) {
    return c == u'。' || c == u'！' || c == u'？' || c == u'；';
}

bool isNarrowStop(QChar c) {
    return c == u'.' || c == u'!' || c == u'?';
}

// Quotes and brackets that close a sentence belong to it.
bool isCloser(QChar c) {
    static const QString closers = QStringLiteral("\"')]’”」』）】");
    return closers.contains(c);
}

// One past the end of the first sentence that ends at or after `from` in `text`, or nothing when it
// runs to the end. Always past `from`.
std::optional<qsizetype> sentenceEnd(const QString& text, qsizetype from) {
    for (qsizetype i = from; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c == u'\n' || c == u'\r')
            return i + 1;
        if (!isWideStop(c) && !isNarrowStop(c))
            continue;
        qsizetype end = i + 1;
        while (end < text.size() &&
               (isCloser(text.at(end)) || isWideStop(text.at(end)) || isNarrowStop(text.at(end))))
            ++end;
        // "3.5" and "example.com" go on: a narrow stop ends a sentence only before a blank or the end.
        if (isNarrowStop(c) && end < text.size() && !text.at(end).isSpace())
            continue;
        return end;
    }
    return std::nullopt;
}

QString htmlText(const QString& text) {
    QString escaped = text.toHtmlEscaped();
    escaped.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    escaped.replace(u'\r', u'\n');
    escaped.replace(u'\n', QStringLiteral("<br>"));
    escaped.replace(u'\t', u' ');
    return escaped;
}

// Paragraphs at blank lines, line breaks inside them kept.
QString paragraphs(const QString& text) {
    static const QRegularExpression blankLines(QStringLiteral("\\n[ \\t]*\\n\\s*"));
    QString normalized = text;
    normalized.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    QString html;
    for (const QString& paragraph : normalized.split(blankLines, Qt::SkipEmptyParts)) {
        const QString trimmed = paragraph.trimmed();
        if (!trimmed.isEmpty())
            html += QStringLiteral("<p>") + htmlText(trimmed) + QStringLiteral("</p>");
    }
    return html;
}

enum class Role { none, front, word, sentence, back };

Role roleOf(const QString& fieldName) {
    const QString name = fieldName.simplified().toLower();
    auto among = [&name](std::initializer_list<const char16_t*> names) {
        for (const char16_t* candidate : names)
            if (name == QStringView(candidate))
                return true;
        return false;
    };
    if (among({u"front", u"question", u"正面", u"问题"}))
        return Role::front;
    if (among({u"word", u"expression", u"term", u"vocab", u"vocabulary", u"单词", u"词语", u"生词"}))
        return Role::word;
    if (among({u"sentence", u"example", u"context", u"例句", u"句子", u"语境"}))
        return Role::sentence;
    if (among({u"back", u"answer", u"meaning", u"definition", u"explanation", u"gloss", u"背面", u"答案",
               u"释义", u"意思", u"解释"}))
        return Role::back;
    return Role::none;
}

} // namespace

namespace AnkiSentence {

Cut around(const QString& before, const QString& after) {
    qsizetype start = 0;
    while (const std::optional<qsizetype> end = sentenceEnd(before, start))
        start = *end;
    const std::optional<qsizetype> end = sentenceEnd(after, 0);
    QString head = before.mid(start);
    while (!head.isEmpty() && head.front().isSpace())
        head.remove(0, 1);
    QString tail = after.left(end.value_or(after.size()));
    while (!tail.isEmpty() && tail.back().isSpace())
        tail.chop(1);
    return {head, tail};
}

} // namespace AnkiSentence

AnkiNote AnkiNote::from(const HistoryRecord& record) {
    AnkiNote note;
    note.word = htmlText(record.selectedText.trimmed());
    const AnkiSentence::Cut cut = AnkiSentence::around(record.contextBefore, record.contextAfter);
    if (!cut.before.isEmpty() || !cut.after.isEmpty())
        note.sentence = htmlText(cut.before) + QStringLiteral("<b>") + note.word + QStringLiteral("</b>") +
                        htmlText(cut.after);

    note.back = paragraphs(record.gloss);
    const QString meaning = paragraphs(record.contextualMeaning);
    if (!meaning.isEmpty())
        note.back += (note.back.isEmpty() ? QString() : QStringLiteral("<hr>")) + meaning;
    QStringList origin;
    if (!record.sourceApp.trimmed().isEmpty())
        origin << htmlText(record.sourceApp.trimmed());
    if (record.createdAt.isValid())
        origin << record.createdAt.toLocalTime().toString(QStringLiteral("yyyy-MM-dd"));
    if (!origin.isEmpty())
        note.back += QStringLiteral("<p><small>") + origin.join(QStringLiteral(" · ")) +
                     QStringLiteral("</small></p>");
    return note;
}

AnkiNote AnkiNote::fromStored(const HistoryRecord& record) {
    if (SelectionLimit::characterCount(record.contextBefore) < LookupHistory::ContextCharacters)
        return from(record);
    HistoryRecord adjacent = record;
    adjacent.contextBefore.clear();
    return from(adjacent);
}

QString AnkiNote::front() const {
    if (sentence.isEmpty())
        return QStringLiteral("<p><b>") + word + QStringLiteral("</b></p>");
    return QStringLiteral("<p>") + sentence + QStringLiteral("</p><p>") + word + QStringLiteral("</p>");
}

QStringList AnkiNote::fieldsFor(const QStringList& fieldNames) const {
    QStringList values(fieldNames.size());
    std::optional<qsizetype> frontAt, wordAt, sentenceAt, backAt;
    for (qsizetype i = 0; i < fieldNames.size(); ++i) {
        std::optional<qsizetype>* slot = nullptr;
        switch (roleOf(fieldNames.at(i))) {
        case Role::front:
            slot = &frontAt;
            break;
        case Role::word:
            slot = &wordAt;
            break;
        case Role::sentence:
            slot = &sentenceAt;
            break;
        case Role::back:
            slot = &backAt;
            break;
        case Role::none:
            break;
        }
        if (slot && !*slot)
            *slot = i;
    }
    auto firstFree = [&]() -> std::optional<qsizetype> {
        for (qsizetype i = 0; i < fieldNames.size(); ++i)
            if (i != frontAt && i != wordAt && i != sentenceAt && i != backAt)
                return i;
        return std::nullopt;
    };

    // The sentence is never dropped: without a field of its own it goes with the text as the front.
    if (sentenceAt) {
        values[*sentenceAt] =
            sentence.isEmpty() ? QStringLiteral("<b>") + word + QStringLiteral("</b>") : sentence;
        if (wordAt)
            values[*wordAt] = word;
    } else if (wordAt && !frontAt) {
        frontAt = wordAt;
        wordAt.reset();
    } else if (wordAt) {
        values[*wordAt] = word;
    }
    if (!frontAt && !sentenceAt)
        frontAt = firstFree();
    if (frontAt)
        values[*frontAt] = front();
    if (!backAt)
        backAt = firstFree();
    if (backAt)
        values[*backAt] = back;
    else if (frontAt)
        values[*frontAt] += QStringLiteral("<hr>") + back;
    return values;
}
