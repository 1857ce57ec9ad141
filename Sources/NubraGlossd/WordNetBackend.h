#pragma once

#include "NubraGlossd/Backend.h"
#include "NubraGlossd/WordNetDatabase.h"

#include <string>
#include <vector>

// Offline English glosses straight from the WordNet 3.0 files: senses of every base form the
// selection may stand for, the one that best fits the context, presented after the request's style
// and length.
class WordNetBackend : public Backend {
public:
    explicit WordNetBackend(wordnet::Database database);

    QString modelName(const GlossRequest& request) const override;
    BackendOutcome gloss(const GlossRequest& request, EventSink& sink) override;

    // One dictionary entry the selection leads to: a base form in one part of speech, its senses.
    struct Entry {
        std::string surface; // the word as looked up (lower case)
        wordnet::IndexEntry index;
        std::vector<wordnet::Synset> senses;
    };
    struct Choice {
        std::size_t entry = 0;
        std::size_t sense = 0;
        std::vector<std::string> matched; // context words the chosen sense shares
    };

    std::vector<Entry> entries(const std::string& word) const;
    // The sense whose definition, examples and synonyms share most words with `context`; ties and
    // no overlap at all go to the most frequent sense.
    Choice choose(const std::vector<Entry>& entries, const std::string& context) const;

private:
    // The words of `text` worth comparing, each with its candidate base forms, the word itself first.
    std::vector<std::vector<std::string>> contentWords(const std::string& text) const;

    wordnet::Database m_database;
};
