#include "NubraGlossd/Morphology.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace wordnet {

namespace {

using Rule = std::pair<std::string_view, std::string_view>; // suffix, replacement

constexpr Rule nounRules[] = {{"s", ""},      {"ses", "s"},   {"xes", "x"},   {"zes", "z"},
                              {"ches", "ch"}, {"shes", "sh"}, {"men", "man"}, {"ies", "y"}};
constexpr Rule verbRules[] = {{"s", ""},   {"ies", "y"}, {"es", "e"},  {"es", ""},
                              {"ed", "e"}, {"ed", ""},   {"ing", "e"}, {"ing", ""}};
constexpr Rule adjectiveRules[] = {{"er", ""}, {"est", ""}, {"er", "e"}, {"est", "e"}};

std::pair<const Rule*, const Rule*> rulesFor(Pos pos) {
    switch (pos) {
    case Pos::noun:
        return {std::begin(nounRules), std::end(nounRules)};
    case Pos::verb:
        return {std::begin(verbRules), std::end(verbRules)};
    case Pos::adjective:
        return {std::begin(adjectiveRules), std::end(adjectiveRules)};
    case Pos::adverb:
        break;
    }
    return {nullptr, nullptr};
}

} // namespace

std::vector<std::string> baseForms(const Database& database, const std::string& word, Pos pos) {
    std::vector<std::string> forms;
    const auto add = [&](const std::string& candidate) {
        if (!candidate.empty() && std::find(forms.begin(), forms.end(), candidate) == forms.end() &&
            database.lookup(candidate, pos))
            forms.push_back(candidate);
    };
    add(word);
    for (const std::string& base : database.exceptions(word, pos))
        add(base);
    const auto [first, last] = rulesFor(pos);
    for (const Rule* rule = first; rule != last; ++rule) {
        const std::string_view suffix = rule->first;
        if (word.size() > suffix.size() && std::string_view(word).ends_with(suffix))
            add(word.substr(0, word.size() - suffix.size()) + std::string(rule->second));
    }
    return forms;
}

std::vector<std::string> candidateForms(const Database& database, const std::string& word) {
    std::vector<std::string> forms{word};
    for (Pos pos : allPos) {
        const auto& irregular = database.exceptions(word, pos);
        forms.insert(forms.end(), irregular.begin(), irregular.end());
        const auto [first, last] = rulesFor(pos);
        for (const Rule* rule = first; rule != last; ++rule)
            if (word.size() > rule->first.size() + 1 && std::string_view(word).ends_with(rule->first))
                forms.push_back(word.substr(0, word.size() - rule->first.size()) + std::string(rule->second));
    }
    return forms;
}

} // namespace wordnet
