#pragma once

#include "NubraGlossd/WordNetDatabase.h"

#include <string>
#include <vector>

namespace wordnet {

// The dictionary forms `word` (lower case, spaces as underscores) may stand for in one part of speech,
// the way WordNet's own morphy finds them: the word itself, the irregular forms of the exception list,
// then the regular suffix rules. Only forms that have an index entry are returned, without repeats.
std::vector<std::string> baseForms(const Database& database, const std::string& word, Pos pos);

// `word` with every form the exception lists and suffix rules of any part of speech derive from it,
// unchecked against the index: cheap enough to normalise whole sentences for comparing them.
std::vector<std::string> candidateForms(const Database& database, const std::string& word);

} // namespace wordnet
