#include "NubraGlossd/WordNetBackend.h"

#include "NubraGlossd/Morphology.h"

#include <QRegularExpression>

#include <algorithm>
#include <cctype>
#include <set>

using wordnet::Pos;

namespace {

constexpr std::size_t MaxWords = 12;

const std::set<std::string, std::less<>> stopWords{
    "a",     "an",   "the",   "and",   "or",    "but", "of",    "to",     "in",    "on",    "at",   "by",
    "for",   "with", "from",  "as",    "is",    "are", "was",   "were",   "be",    "been",  "it",   "its",
    "this",  "that", "these", "those", "he",    "she", "they",  "we",     "you",   "i",     "his",  "her",
    "their", "our",  "your",  "my",    "me",    "him", "them",  "us",     "not",   "no",    "so",   "if",
    "then",  "than", "there", "here",  "up",    "out", "into",  "over",   "about", "has",   "have", "had",
    "do",    "does", "did",   "will",  "would", "can", "could", "should", "may",   "might", "must", "s"};

struct Detail {
    std::size_t entries;
    std::size_t senses;
    std::size_t examples;
    bool synonyms;
    bool hypernyms;
};

Detail detailFor(const GlossRequest& request) {
    const bool learning = request.style() == wireValue(GlossStyle::languageLearning);
    const bool academic = request.style() == wireValue(GlossStyle::academic);
    if (request.length() == rawValue(GlossLength::short_))
        return {2, 1, learning ? 1u : 0u, learning, academic};
    if (request.length() == rawValue(GlossLength::medium))
        return {3, 3, learning ? 1u : 0u, learning, academic};
    return {6, 6, learning ? 2u : 1u, true, academic};
}

// Headings follow the requested output language; WordNet itself only speaks English.
struct Words {
    bool zh;
    std::string t(const char* en, const char* zhText) const { return zh ? zhText : en; }
    std::string pos(Pos pos) const {
        static constexpr const char* names[] = {"名词", "动词", "形容词", "副词"};
        return zh ? names[std::size_t(pos)] : std::string(wordnet::posName(pos));
    }
    std::string paren(const std::string& text) const { return zh ? "（" + text + "）" : " (" + text + ")"; }
    std::string quote(const std::string& text) const { return "\u201c" + text + "\u201d"; }
};

std::string lowerAscii(std::string text) {
    for (char& c : text)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string join(const std::vector<std::string>& parts, const std::string& separator) {
    std::string text;
    for (const auto& part : parts)
        text += (text.empty() ? "" : separator) + part;
    return text;
}

std::vector<std::string> tokens(const std::string& text) {
    std::vector<std::string> found;
    std::string current;
    for (char c : text + ' ') {
        const auto byte = static_cast<unsigned char>(c);
        // Bytes of non-ASCII letters belong to the word: "naïve" is one word, not "na" and "ve".
        if (std::isalnum(byte) || byte >= 0x80 || c == '\'' || c == '-') {
            current += c;
        } else if (!current.empty()) {
            while (!current.empty() && (current.back() == '\'' || current.back() == '-'))
                current.pop_back();
            if (!current.empty())
                found.push_back(lowerAscii(current));
            current.clear();
        }
    }
    return found;
}

// Selections arrive with quotes and punctuation around them ("bank,", "«élan»"); the dictionary knows
// neither. Letters of any script stay: "élan" must not become "lan".
std::string lookupKey(const std::string& selection) {
    const QString text = QString::fromStdString(selection);
    qsizetype first = 0;
    qsizetype last = text.size();
    while (first < last && !text.at(first).isLetterOrNumber())
        ++first;
    while (last > first && !text.at(last - 1).isLetterOrNumber())
        --last;
    const std::string key = lowerAscii(text.sliced(first, last - first).toStdString());
    std::string collapsed;
    for (char c : key)
        if (!(std::isspace(static_cast<unsigned char>(c)) && (collapsed.empty() || collapsed.back() == '_')))
            collapsed += std::isspace(static_cast<unsigned char>(c)) ? '_' : c;
    return collapsed;
}

bool looksLikeIdentifier(const QString& text) {
    static const QRegularExpression shape(
        QStringLiteral("^[A-Za-z_$][A-Za-z0-9_$]*(?:(?:::|\\.|->)[A-Za-z_$][A-Za-z0-9_$]*)*(?:\\(\\))?$"));
    static const QRegularExpression marker(QStringLiteral("[a-z][A-Z]|_|::|\\.|->|\\(\\)|[A-Za-z][0-9]"));
    return shape.match(text).hasMatch() && marker.match(text).hasMatch();
}

// getUserName, get_user_name, HTTPServer2 -> get user name, http server 2
std::vector<std::string> identifierParts(const QString& identifier) {
    static const QRegularExpression part(QStringLiteral("[A-Z]+(?![a-z])|[A-Z]?[a-z]+|[0-9]+"));
    std::vector<std::string> parts;
    for (auto it = part.globalMatch(identifier); it.hasNext();)
        parts.push_back(lowerAscii(it.next().captured().toStdString()));
    return parts;
}

} // namespace

WordNetBackend::WordNetBackend(wordnet::Database database) : m_database(std::move(database)) {}

QString WordNetBackend::modelName(const GlossRequest&) const {
    return QStringLiteral("wordnet-3.0");
}

std::vector<WordNetBackend::Entry> WordNetBackend::entries(const std::string& word) const {
    std::vector<Entry> found;
    for (Pos pos : wordnet::allPos)
        for (const std::string& base : wordnet::baseForms(m_database, word, pos)) {
            Entry entry{word, *m_database.lookup(base, pos), {}};
            for (long offset : entry.index.offsets)
                if (auto synset = m_database.synset(pos, offset))
                    entry.senses.push_back(std::move(*synset));
            if (!entry.senses.empty())
                found.push_back(std::move(entry));
        }
    // The tagged-sense counts say which reading is most common: "running" is mostly the verb "run".
    std::stable_sort(found.begin(), found.end(), [](const Entry& a, const Entry& b) {
        return a.index.taggedSenses > b.index.taggedSenses;
    });
    return found;
}

std::vector<std::vector<std::string>> WordNetBackend::contentWords(const std::string& text) const {
    std::vector<std::vector<std::string>> words;
    for (const std::string& token : tokens(text))
        if (!stopWords.count(token) && token.size() > 1)
            words.push_back(wordnet::candidateForms(m_database, token));
    return words;
}

WordNetBackend::Choice WordNetBackend::choose(const std::vector<Entry>& entries,
                                              const std::string& context) const {
    // Each context word counts once, matched through any of its forms ("deposits" meets "deposit").
    std::vector<std::vector<std::string>> contextWords;
    std::set<std::string> seen;
    for (auto& forms : contentWords(context)) {
        const bool isSelection = std::any_of(entries.begin(), entries.end(), [&](const Entry& entry) {
            return forms.front() == entry.surface || forms.front() == entry.index.lemma;
        });
        if (!isSelection && seen.insert(forms.front()).second)
            contextWords.push_back(std::move(forms));
    }

    Choice best;
    std::size_t bestScore = 0;
    for (std::size_t e = 0; e < entries.size(); ++e)
        for (std::size_t s = 0; s < entries[e].senses.size(); ++s) {
            const auto& sense = entries[e].senses[s];
            std::set<std::string> signature;
            for (const auto& forms : contentWords(sense.definition + ' ' + join(sense.examples, " ") + ' ' +
                                                  join(sense.words, " ")))
                signature.insert(forms.begin(), forms.end());
            std::vector<std::string> matched;
            for (const auto& forms : contextWords)
                if (std::any_of(forms.begin(), forms.end(),
                                [&](const auto& form) { return signature.count(form); }))
                    matched.push_back(forms.front());
            if (matched.size() > bestScore) {
                bestScore = matched.size();
                best = {e, s, matched};
            }
        }
    return best;
}

namespace {

struct Composition {
    std::vector<std::string> lines;
    std::string meaning;
};

void describeEntries(const std::vector<WordNetBackend::Entry>& entries, const WordNetBackend::Choice& choice,
                     const Detail& detail, const Words& words, const wordnet::Database& database,
                     Composition& out) {
    for (std::size_t e = 0; e < entries.size() && e < detail.entries; ++e) {
        const auto& entry = entries[e];
        std::string header = entry.surface == entry.index.lemma
                                 ? entry.index.lemma
                                 : entry.surface + " \u2192 " + entry.index.lemma;
        std::replace(header.begin(), header.end(), '_', ' ');
        out.lines.push_back(header + words.paren(words.pos(entry.index.pos)));
        std::vector<std::size_t> shown;
        for (std::size_t s = 0; s < entry.senses.size() && s < detail.senses; ++s)
            shown.push_back(s);
        if (e == choice.entry && choice.sense >= shown.size())
            shown.push_back(choice.sense); // the sense the context picks is always shown
        for (std::size_t s : shown) {
            const auto& sense = entry.senses[s];
            out.lines.push_back(std::to_string(s + 1) + ". " + sense.definition);
            std::vector<std::string> synonyms;
            for (const auto& word : sense.words)
                if (lowerAscii(word) != lowerAscii(entry.index.lemma) && word != entry.surface)
                    synonyms.push_back(word);
            if (detail.synonyms && !synonyms.empty())
                out.lines.push_back("   " + words.t("Synonyms: ", "同义词：") + join(synonyms, ", "));
            if (detail.hypernyms && !sense.hypernyms.empty())
                if (auto broader =
                        database.synset(sense.hypernyms.front().first, sense.hypernyms.front().second))
                    out.lines.push_back("   " + words.t("Broader term: ", "上位词：") +
                                        join(broader->words, ", ") + " \u2014 " + broader->definition);
            for (std::size_t x = 0; x < sense.examples.size() && x < detail.examples; ++x)
                out.lines.push_back("   " + words.t("Example: ", "例句：") + words.quote(sense.examples[x]));
        }
    }
}

} // namespace

BackendOutcome WordNetBackend::gloss(const GlossRequest& request, EventSink& sink) {
    const Words words{request.lang() == u"zh"};
    const Detail detail = detailFor(request);
    const std::string selection = request.selectedText().trimmed().toStdString();
    const std::string context =
        request.contextBefore().toStdString() + " \n " + request.contextAfter().toStdString();
    std::string shown = selection;
    if (shown.size() > 80) {
        std::size_t cut = 80;
        while (cut > 0 && (static_cast<unsigned char>(shown[cut]) & 0xC0) == 0x80)
            --cut; // never inside a UTF-8 sequence
        shown = shown.substr(0, cut) + "\u2026";
    }
    Composition out;

    auto whole = entries(lookupKey(selection));
    const bool identifier = request.style() == wireValue(GlossStyle::coding) &&
                            looksLikeIdentifier(request.selectedText().trimmed());
    if (identifier) {
        const auto parts = identifierParts(request.selectedText().trimmed());
        out.lines.push_back(words.t("Identifier: ", "标识符：") + selection);
        out.lines.push_back(words.t("Reads as: ", "读作：") + join(parts, " "));
        for (const auto& part : parts) {
            const auto partEntries = entries(part);
            if (!partEntries.empty())
                out.lines.push_back("- " + part + words.paren(words.pos(partEntries.front().index.pos)) +
                                    ": " + partEntries.front().senses.front().definition);
        }
        out.meaning = words.t("As an identifier, ", "作为标识符，") + words.quote(selection) +
                      words.t(" most likely names what its parts say: ", " 大概表示其各部分之意：") +
                      words.quote(join(parts, " ")) + words.t(".", "。");
    } else if (!whole.empty()) {
        const Choice choice = choose(whole, context);
        describeEntries(whole, choice, detail, words, m_database, out);
        const auto& entry = whole[choice.entry];
        const auto& sense = entry.senses[choice.sense];
        const std::string where =
            words.pos(entry.index.pos) + words.t(", sense ", "，义项 ") + std::to_string(choice.sense + 1);
        if (!choice.matched.empty()) {
            std::vector<std::string> quoted;
            for (const auto& match : choice.matched)
                quoted.push_back(words.quote(match));
            out.meaning =
                words.t("Here ", "此处 ") + words.quote(shown) +
                words.t(" most likely means: ", " 最可能的意思是：") + sense.definition +
                words.paren(where + words.t("; the context mentions ", "；语境中有 ") + join(quoted, ", ")) +
                words.t(".", "。");
        } else {
            const bool noContext =
                request.contextBefore().trimmed().isEmpty() && request.contextAfter().trimmed().isEmpty();
            out.meaning = (noContext ? words.t("No context was given; ", "没有提供语境；")
                                     : words.t("The context gives no clear clue; ", "语境没有明确线索；")) +
                          words.t("the most common sense of ", "") + words.quote(shown) +
                          words.t(" is: ", " 最常见的意思是：") + sense.definition + words.paren(where) +
                          words.t(".", "。");
        }
    } else {
        // A phrase without an entry of its own: each content word in the light of the others.
        std::vector<std::string> meanings;
        std::size_t known = 0;
        const auto phraseWords = tokens(selection);
        std::vector<std::string> content;
        for (const auto& word : phraseWords)
            if (!stopWords.count(word) && content.size() < MaxWords)
                content.push_back(word);
        if (content.size() > 1 || (content.size() == 1 && phraseWords.size() > 1)) {
            out.lines.push_back(words.t("Word by word:", "逐词解释："));
            for (const auto& word : content) {
                const auto wordEntries = entries(word);
                if (wordEntries.empty()) {
                    out.lines.push_back("- " + word + ": " + words.t("no entry", "词典中没有此词"));
                    continue;
                }
                ++known;
                const Choice choice = choose(wordEntries, context + ' ' + selection);
                const auto& entry = wordEntries[choice.entry];
                out.lines.push_back("- " + word + words.paren(words.pos(entry.index.pos)) + ": " +
                                    entry.senses[choice.sense].definition);
                meanings.push_back(word + " \u2014 " + entry.senses[choice.sense].definition);
            }
        }
        if (known > 0) {
            out.meaning = words.t("Word by word in this context: ", "结合语境逐词理解：") +
                          join(meanings, "; ") + words.t(".", "。");
        } else {
            out.lines = {
                words.quote(shown) +
                    words.t(" has no entry in the offline WordNet dictionary, which covers English words "
                            "and common phrases only.",
                            " 在离线 WordNet 词典中没有条目；该词典只收录英语单词和常见短语。"),
                words.t("To explain any text, start nubra-glossd with an LLM backend: --backend openai "
                        "--upstream URL --model NAME, with the API key in OPENAI_API_KEY.",
                        "要解释任意文本，请以大模型后端启动 nubra-glossd：--backend openai --upstream URL "
                        "--model NAME，并把 API 密钥放在环境变量 OPENAI_API_KEY 中。")};
            out.meaning =
                words.t("Without a dictionary entry nothing can be said offline about its meaning here.",
                        "没有词典条目，离线状态下无法说明它在此处的含义。");
        }
    }

    GlossResult result;
    result.language = words.zh ? QStringLiteral("zh") : QStringLiteral("en");
    for (std::size_t i = 0; i < out.lines.size(); ++i) {
        const QString piece = QString::fromStdString(out.lines[i] + (i + 1 < out.lines.size() ? "\n" : ""));
        if (!sink.delta(QStringLiteral("gloss"), piece))
            return BackendError{QStringLiteral("CANCELLED"), QStringLiteral("The lookup was cancelled.")};
        result.gloss += piece;
    }
    result.contextualMeaning = QString::fromStdString(out.meaning);
    if (!sink.delta(QStringLiteral("contextual_meaning"), result.contextualMeaning))
        return BackendError{QStringLiteral("CANCELLED"), QStringLiteral("The lookup was cancelled.")};
    return result;
}
