#pragma once

#include "NubraCore/Vocabulary/Models.h"

#include <QString>

#include <cstdint>
#include <string>

// The blocks of the event stream a lookup is answered with: "event: <name>", one "data:" line holding a
// compact JSON object, and the blank line that ends the block.
namespace SSEWriter {

std::string meta(const QString& model, std::int64_t estimatedCost, std::int64_t creditsRemaining);
std::string delta(const QString& field, const QString& text);
std::string done(const GlossResult& result);
std::string error(const QString& code, const QString& message);

} // namespace SSEWriter
