#include "NubraCore/Capture/ContextExtractor.h"

#include "NubraCore/Vocabulary/Models.h"

#include <QTextBoundaryFinder>

#include <algorithm>

ContextExtractor::Result ContextExtractor::extract(const QString& fullText, qsizetype location,
                                                   qsizetype length) const {
    const qsizetype n = fullText.size();
    const qsizetype r = radius;
    const qsizetype loc = std::clamp<qsizetype>(location, 0, n);

    Result result;
    const qsizetype start = std::max<qsizetype>(loc - r, 0);
    if (loc - start >= 1)
        result.before = fullText.mid(start, loc - start);

    const qsizetype sel = std::clamp<qsizetype>(length, 0, n - loc);
    if (sel > 0)
        result.selected = fullText.mid(loc, std::min<qsizetype>(sel, MaxSelectedCharacters));

    const qsizetype available = std::max<qsizetype>(n - (loc + sel), 0);
    const qsizetype afterLength = std::min(available, r);
    if (afterLength >= 1)
        result.after = fullText.mid(loc + sel, afterLength);
    return result;
}

ContextExtractor::Result ContextExtractor::fallback(const QString& selected) {
    QTextBoundaryFinder clusters(QTextBoundaryFinder::Grapheme, selected);
    qsizetype end = 0;
    for (int kept = 0; kept < MaxSelectedCharacters; ++kept) {
        const qsizetype next = clusters.toNextBoundary();
        if (next < 0)
            return {{}, selected, {}};
        end = next;
    }
    return {{}, selected.left(end), {}};
}
