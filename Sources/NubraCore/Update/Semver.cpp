#include "NubraCore/Update/Semver.h"

#include <QList>
#include <QStringView>
#include <QTextBoundaryFinder>

#include <algorithm>
#include <limits>

namespace {

// A user-perceived character counts as a number when its first code point does, so "1" followed by a
// combining mark is one non-ASCII character rather than a digit with debris behind it.
bool graphemeIsNumber(QStringView grapheme) {
    const char32_t first = grapheme.toUcs4().value(0);
    return QChar::isNumber(first);
}

QStringView numericPrefix(QStringView piece) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, piece.data(), piece.size());
    qsizetype start = 0;
    for (qsizetype end = finder.toNextBoundary(); end > 0; end = finder.toNextBoundary()) {
        if (!graphemeIsNumber(piece.sliced(start, end - start)))
            break;
        start = end;
    }
    return piece.first(start);
}

std::int64_t asciiDecimal(QStringView digits) {
    if (digits.isEmpty())
        return 0;
    std::int64_t value = 0;
    constexpr std::int64_t limit = std::numeric_limits<std::int64_t>::max();
    for (QChar c : digits) {
        if (c < u'0' || c > u'9')
            return 0; // full-width and other non-ASCII digits do not read as numbers
        const int digit = c.unicode() - u'0';
        if (value > (limit - digit) / 10)
            return 0;
        value = value * 10 + digit;
    }
    return value;
}

} // namespace

namespace Semver {

std::vector<std::int64_t> parse(const QString& version) {
    QStringView rest = QStringView(version).trimmed();
    while (!rest.isEmpty() && (rest.front() == u'v' || rest.front() == u'V'))
        rest = rest.sliced(1);

    std::vector<std::int64_t> components;
    for (QStringView piece : rest.split(u'.', Qt::SkipEmptyParts))
        components.push_back(asciiDecimal(numericPrefix(piece)));
    return components;
}

bool isNewer(const QString& candidate, const QString& reference) {
    const auto a = parse(candidate);
    const auto b = parse(reference);
    const std::size_t count = std::max(a.size(), b.size());
    for (std::size_t i = 0; i < count; ++i) {
        const std::int64_t left = i < a.size() ? a[i] : 0;
        const std::int64_t right = i < b.size() ? b[i] : 0;
        if (left != right)
            return left > right;
    }
    return false;
}

} // namespace Semver
