#include "NubraPlatform/ocr/WordLayout.h"

#include <algorithm>

namespace {

// CJK punctuation and full-width forms, which take no space on either side
bool isWidePunctuation(QChar c) {
    const char16_t u = c.unicode();
    return (u >= 0x3000 && u <= 0x303f) || (u >= 0xff00 && u <= 0xffef);
}

bool isCjk(QChar c) {
    switch (c.script()) {
    case QChar::Script_Han:
    case QChar::Script_Hiragana:
    case QChar::Script_Katakana:
    case QChar::Script_Hangul:
        return true;
    default:
        break;
    }
    return isWidePunctuation(c);
}

// Tesseract spells some letter pairs as the typographic ligature it saw.
QString unligatured(QString text) {
    static const std::pair<char16_t, const char16_t*> ligatures[] = {
        {u'\ufb00', u"ff"}, {u'\ufb01', u"fi"}, {u'\ufb02', u"fl"}, {u'\ufb03', u"ffi"}, {u'\ufb04', u"ffl"}};
    for (const auto& [ligature, letters] : ligatures)
        text.replace(QChar(ligature), QString::fromUtf16(letters));
    return text;
}

} // namespace

namespace WordLayout {

QString joined(const std::vector<RecognizedWord>& words) {
    QString text;
    for (size_t i = 0; i < words.size(); ++i) {
        const QString word = unligatured(words[i].text).simplified();
        if (word.isEmpty())
            continue;
        if (!text.isEmpty()) {
            const bool newLine = words[i].line != words[i - 1].line;
            if (newLine && text.size() > 1 && text.endsWith(QLatin1Char('-')) &&
                text.at(text.size() - 2).isLetter() && word.at(0).isLower())
                text.chop(1); // "recog-" + "nition"
            else if (!(isCjk(text.back()) && isCjk(word.front())) && !isWidePunctuation(text.back()) &&
                     !isWidePunctuation(word.front()))
                text += QLatin1Char(' ');
        }
        text += word;
    }
    return text;
}

std::vector<RecognizedWord> kept(const std::vector<RecognizedWord>& words, float minimumConfidence) {
    // Shapes of icons and stray marks come out as lone symbols or one or two Latin letters of middling
    // confidence; real ones, even small, are read surer than that. (One Chinese character is a word.)
    constexpr float sureShortWord = 80;
    std::vector<RecognizedWord> result;
    for (const RecognizedWord& word : words) {
        const bool hasLetter =
            std::any_of(word.text.begin(), word.text.end(), [](QChar c) { return c.isLetterOrNumber(); });
        const bool doubtful = !hasLetter || (word.text.size() <= 2 && !hasCjk(word.text));
        if (word.confidence >= (doubtful ? std::max(minimumConfidence, sureShortWord) : minimumConfidence))
            result.push_back(word);
    }
    return result;
}

float confidence(const std::vector<RecognizedWord>& words) {
    double sum = 0;
    double weight = 0;
    for (const RecognizedWord& word : words) {
        sum += double(word.confidence) * double(word.text.size());
        weight += double(word.text.size());
    }
    return weight > 0 ? float(sum / weight) : 0.0f;
}

bool hasCjk(const QString& text) {
    return std::any_of(text.begin(), text.end(),
                       [](QChar c) { return isCjk(c) && c.script() != QChar::Script_Common; });
}

// Past this many characters into the cut, a text without spaces (Chinese) is cut mid-way instead.
constexpr int wordSearch = 40;

QString lastPart(const QString& text) {
    if (text.size() <= contextLimit)
        return text;
    const QString tail = text.right(contextLimit);
    const qsizetype space = tail.indexOf(QLatin1Char(' '));
    return space >= 0 && space < wordSearch ? tail.mid(space + 1) : tail;
}

QString firstPart(const QString& text) {
    if (text.size() <= contextLimit)
        return text;
    const QString head = text.left(contextLimit);
    const qsizetype space = head.lastIndexOf(QLatin1Char(' '));
    return space > contextLimit - wordSearch ? head.left(space) : head;
}

Arrangement arranged(const std::vector<RecognizedWord>& words, const QRectF& area) {
    Arrangement result;
    auto& [inside, before, after] = result;
    for (const RecognizedWord& word : words) {
        const QRectF overlap = word.box.intersected(area);
        const double boxArea = word.box.width() * word.box.height();
        if (boxArea > 0 && overlap.width() * overlap.height() >= 0.5 * boxArea) {
            inside.push_back(word);
            continue;
        }
        const double middle = word.box.center().y();
        if (middle < area.top())
            before.push_back(word);
        else if (middle > area.bottom())
            after.push_back(word);
        else
            (word.box.center().x() < area.center().x() ? before : after).push_back(word);
    }
    return result;
}

} // namespace WordLayout
