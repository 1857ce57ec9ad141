#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Read-only access to the WordNet 3.0 database files (index.*, data.*, *.exc) as Debian's wordnet-base
// installs them. Everything is read into memory once; lookups are binary searches and direct offsets.
namespace wordnet {

enum class Pos { noun, verb, adjective, adverb };
inline constexpr std::array<Pos, 4> allPos{Pos::noun, Pos::verb, Pos::adjective, Pos::adverb};

struct IndexEntry {
    std::string lemma;
    Pos pos = Pos::noun;
    int taggedSenses = 0;      // how often the lemma was sense-tagged in the corpus: a frequency hint
    std::vector<long> offsets; // synsets in order of sense frequency
};

struct Synset {
    long offset = 0;
    Pos pos = Pos::noun;
    std::vector<std::string> words; // with spaces instead of underscores
    std::string definition;
    std::vector<std::string> examples;
    std::vector<std::pair<Pos, long>> hypernyms;
};

class Database {
public:
    // Reads the files under `directory`; nothing when one of them is missing or unreadable.
    static std::optional<Database> open(const std::string& directory);

    std::optional<IndexEntry> lookup(std::string_view lemma, Pos pos) const;
    std::optional<Synset> synset(Pos pos, long offset) const;
    // Base forms listed for an irregular inflection ("geese" -> "goose"), empty when none.
    const std::vector<std::string>& exceptions(std::string_view word, Pos pos) const;

private:
    struct PosFiles {
        std::string index;
        std::vector<std::string_view> indexLines; // sorted, licence header skipped
        std::string data;
        std::map<std::string, std::vector<std::string>, std::less<>> exceptions;
    };
    std::array<PosFiles, 4> m_files;
};

std::string_view posName(Pos pos);

} // namespace wordnet
