#include "NubraGlossd/WordNetDatabase.h"

#include <algorithm>
#include <charconv>
#include <fstream>

namespace wordnet {

namespace {

constexpr std::array<std::string_view, 4> fileSuffix{"noun", "verb", "adj", "adv"};

std::optional<std::string> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in)
        return std::nullopt;
    std::string contents(std::size_t(in.tellg()), '\0');
    in.seekg(0);
    if (!in.read(contents.data(), std::streamsize(contents.size())))
        return std::nullopt;
    return contents;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t end = text.find(separator, start);
        const std::size_t stop = end == std::string_view::npos ? text.size() : end;
        if (stop > start)
            parts.push_back(text.substr(start, stop - start));
        if (end == std::string_view::npos)
            break;
        start = end + 1;
    }
    return parts;
}

std::optional<long> number(std::string_view text, int base = 10) {
    long value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

std::optional<Pos> posFromCode(std::string_view code) {
    if (code == "n")
        return Pos::noun;
    if (code == "v")
        return Pos::verb;
    if (code == "a" || code == "s")
        return Pos::adjective;
    if (code == "r")
        return Pos::adverb;
    return std::nullopt;
}

std::string_view keyOf(std::string_view line) {
    return line.substr(0, line.find(' '));
}

std::string readable(std::string_view word) {
    std::string text(word.substr(0, word.find('('))); // adjectives carry markers such as "(p)"
    std::replace(text.begin(), text.end(), '_', ' ');
    return text;
}

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" ;");
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" ;") - first + 1);
}

// "definition; \"example\"; \"another\"": the examples are the quoted parts.
void parseGloss(std::string_view gloss, Synset& synset) {
    const std::size_t quote = gloss.find('"');
    synset.definition = std::string(trimmed(gloss.substr(0, quote)));
    std::size_t at = quote;
    while (at != std::string_view::npos) {
        const std::size_t close = gloss.find('"', at + 1);
        if (close == std::string_view::npos)
            break;
        synset.examples.emplace_back(gloss.substr(at + 1, close - at - 1));
        at = gloss.find('"', close + 1);
    }
}

} // namespace

std::string_view posName(Pos pos) {
    static constexpr std::array<std::string_view, 4> names{"noun", "verb", "adjective", "adverb"};
    return names[std::size_t(pos)];
}

std::optional<Database> Database::open(const std::string& directory) {
    Database database;
    for (std::size_t i = 0; i < fileSuffix.size(); ++i) {
        PosFiles& files = database.m_files[i];
        const std::string suffix(fileSuffix[i]);
        auto index = readFile(directory + "/index." + suffix);
        auto data = readFile(directory + "/data." + suffix);
        auto exceptions = readFile(directory + "/" + suffix + ".exc");
        if (!index || !data || !exceptions)
            return std::nullopt;
        files.index = std::move(*index);
        files.data = std::move(*data);
        for (std::string_view line : split(files.index, '\n'))
            if (line.front() != ' ')
                files.indexLines.push_back(line);
        for (std::string_view line : split(*exceptions, '\n')) {
            auto words = split(line, ' ');
            if (words.size() < 2)
                continue;
            auto& bases = files.exceptions[std::string(words.front())];
            for (std::size_t w = 1; w < words.size(); ++w)
                bases.emplace_back(words[w]);
        }
    }
    return database;
}

std::optional<IndexEntry> Database::lookup(std::string_view lemma, Pos pos) const {
    const auto& lines = m_files[std::size_t(pos)].indexLines;
    const auto it =
        std::lower_bound(lines.begin(), lines.end(), lemma,
                         [](std::string_view line, std::string_view key) { return keyOf(line) < key; });
    if (it == lines.end() || keyOf(*it) != lemma)
        return std::nullopt;

    // lemma pos synset_cnt p_cnt [ptr_symbol...] sense_cnt tagsense_cnt synset_offset...
    const auto fields = split(*it, ' ');
    if (fields.size() < 4)
        return std::nullopt;
    const auto synsetCount = number(fields[2]);
    const auto pointerCount = number(fields[3]);
    if (!synsetCount || !pointerCount)
        return std::nullopt;
    const std::size_t tagged = 4 + std::size_t(*pointerCount) + 1;
    if (fields.size() < tagged + 1 + std::size_t(*synsetCount))
        return std::nullopt;
    IndexEntry entry{std::string(lemma), pos, int(number(fields[tagged]).value_or(0)), {}};
    for (std::size_t s = 0; s < std::size_t(*synsetCount); ++s)
        if (auto offset = number(fields[tagged + 1 + s]))
            entry.offsets.push_back(*offset);
    return entry;
}

std::optional<Synset> Database::synset(Pos pos, long offset) const {
    const std::string& data = m_files[std::size_t(pos)].data;
    if (offset < 0 || std::size_t(offset) >= data.size())
        return std::nullopt;
    std::string_view line(data);
    line = line.substr(std::size_t(offset));
    line = line.substr(0, line.find('\n'));
    const std::size_t bar = line.find(" | ");
    const auto fields = split(line.substr(0, bar), ' ');

    // offset lex_filenum ss_type w_cnt [word lex_id]... p_cnt [symbol offset pos source/target]...
    if (fields.size() < 4 || number(fields[0]) != offset)
        return std::nullopt;
    Synset synset;
    synset.offset = offset;
    synset.pos = pos;
    const auto wordCount = number(fields[3], 16);
    if (!wordCount || fields.size() < 5 + 2 * std::size_t(*wordCount))
        return std::nullopt;
    for (std::size_t w = 0; w < std::size_t(*wordCount); ++w)
        synset.words.push_back(readable(fields[4 + 2 * w]));
    const std::size_t pointerAt = 4 + 2 * std::size_t(*wordCount);
    const auto pointerCount = number(fields[pointerAt]).value_or(0);
    for (std::size_t p = 0; p < std::size_t(pointerCount); ++p) {
        const std::size_t at = pointerAt + 1 + 4 * p;
        if (at + 3 >= fields.size())
            break;
        if (fields[at] != "@" && fields[at] != "@i")
            continue;
        const auto target = number(fields[at + 1]);
        const auto targetPos = posFromCode(fields[at + 2]);
        if (target && targetPos)
            synset.hypernyms.emplace_back(*targetPos, *target);
    }
    if (bar != std::string_view::npos)
        parseGloss(line.substr(bar + 3), synset);
    return synset;
}

const std::vector<std::string>& Database::exceptions(std::string_view word, Pos pos) const {
    static const std::vector<std::string> none;
    const auto& table = m_files[std::size_t(pos)].exceptions;
    const auto it = table.find(word);
    return it == table.end() ? none : it->second;
}

} // namespace wordnet
