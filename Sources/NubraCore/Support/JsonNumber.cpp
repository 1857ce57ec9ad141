#include "NubraCore/Support/JsonNumber.h"

#include <cmath>
#include <limits>

std::optional<std::int64_t> jsonWholeNumber(const QJsonValue& value) {
    if (!value.isDouble())
        return std::nullopt;
    // Qt keeps integral literals as 64-bit integers; reading them back through a double would lose
    // everything past 2^53.
    constexpr qint64 sentinel = std::numeric_limits<qint64>::min();
    const qint64 integer = value.toInteger(sentinel);
    if (integer != sentinel)
        return integer;
    const double number = value.toDouble();
    if (!std::isfinite(number) || std::trunc(number) != number || number < -9223372036854775808.0 ||
        number >= 9223372036854775808.0)
        return std::nullopt;
    return static_cast<std::int64_t>(number);
}
