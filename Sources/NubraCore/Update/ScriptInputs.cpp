#include "NubraCore/Update/ScriptInputs.h"

#include <QList>

#include <algorithm>

namespace ScriptInputs {

std::optional<QString> normalizedChecksum(const std::optional<QString>& sha256) {
    if (!sha256)
        return std::nullopt;
    const QString trimmed = sha256->trimmed();
    const auto isHexDigit = [](QChar c) {
        return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
    };
    if (trimmed.size() != 64 || !std::all_of(trimmed.begin(), trimmed.end(), isHexDigit))
        return std::nullopt;
    return trimmed.toLower();
}

QString filteredVersion(const QString& version) {
    QString kept;
    for (char32_t codePoint : version.toUcs4()) {
        const bool alphanumeric = QChar::isLetterOrNumber(codePoint) || QChar::isMark(codePoint);
        if (alphanumeric || codePoint == U'-' || codePoint == U'.' || codePoint == U'_')
            kept += QString::fromUcs4(&codePoint, 1);
    }
    return kept;
}

} // namespace ScriptInputs
