#pragma once

#include <QString>

// Cuts a selection and up to `radius` UTF-16 units of text on each side out of an element's full text.
struct ContextExtractor {
    struct Result {
        QString before;
        QString selected;
        QString after;
        friend bool operator==(const Result&, const Result&) = default;
    };

    int radius = 0;

    explicit ContextExtractor(int radius) : radius(radius) {}

    // `location` and `length` count UTF-16 code units of `fullText`. Out-of-range values are clamped;
    // the selection keeps at most MaxSelectedCharacters units, the after-context starts at the end of
    // the whole selection. Nothing is trimmed and no cut moves to a character boundary.
    Result extract(const QString& fullText, qsizetype location, qsizetype length) const;

    // For a selection whose surrounding text is unknown: the first MaxSelectedCharacters
    // user-perceived characters, no context.
    static Result fallback(const QString& selected);
};
