#pragma once

#include <QJsonValue>

#include <cstdint>
#include <optional>

// JSON numbers arrive as doubles; an integer member must hold a whole number that fits 64 bits.
// A number with a fractional part, or any other JSON type, counts as the wrong type.
std::optional<std::int64_t> jsonWholeNumber(const QJsonValue& value);
