#pragma once

#include "NubraCore/Vocabulary/Models.h"

#include <QString>

#include <cstddef>
#include <string_view>
#include <variant>

// Turns the bodies the service accepts into values, or into the one sentence that says what is wrong.
namespace RequestValidator {

inline constexpr std::size_t MaxBodyBytes = 64 * 1024;

struct RefreshRequest {
    QString refreshToken;
    QString deviceId;
};

std::variant<GlossRequest, QString> glossRequest(std::string_view body);
std::variant<RefreshRequest, QString> refreshRequest(std::string_view body);

} // namespace RequestValidator
