#include "NubraCore/Lookup/SelectionLimit.h"

#include "NubraCore/Vocabulary/L10n.h"

#include <QTextBoundaryFinder>

#include <limits>

namespace SelectionLimit {

namespace {

// The position after the first `count` grapheme clusters, or the text's end; the count of clusters
// passed goes to `seen`.
qsizetype boundaryAfter(const QString& text, int count, int& seen) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    seen = 0;
    qsizetype position = 0;
    while (seen < count) {
        const qsizetype next = finder.toNextBoundary();
        if (next < 0)
            break;
        position = next;
        ++seen;
    }
    return position;
}

} // namespace

int characterCount(const QString& text) {
    int seen = 0;
    boundaryAfter(text, std::numeric_limits<int>::max(), seen);
    return seen;
}

QString prefix(const QString& text, int count) {
    int seen = 0;
    return text.left(boundaryAfter(text, count, seen));
}

std::optional<QString> refusal(const QString& selectedText) {
    const int count = characterCount(selectedText);
    if (count <= MaxCharacters)
        return std::nullopt;
    const QString counted = QString::number(count);
    const QString limit = QString::number(MaxCharacters);
    return L10n::t(QStringLiteral("Selection too long (") + counted + QStringLiteral(" chars, limit ") +
                       limit + QStringLiteral("). Shorten it and retry."),
                   QStringLiteral("选中文本过长（") + counted + QStringLiteral(" 字符，上限 ") + limit +
                       QStringLiteral("）。请缩短选区后重试。"));
}

} // namespace SelectionLimit
