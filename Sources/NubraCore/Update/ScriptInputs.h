#pragma once

#include <QString>

#include <optional>

// The checks both install-script builders make of what they paste into a script.
namespace ScriptInputs {

// The checksum trimmed and lower-cased, or nothing unless it is exactly 64 ASCII hexadecimal digits:
// the script compares it as text with the lower-case output of the checksum tool.
std::optional<QString> normalizedChecksum(const std::optional<QString>& sha256);

// Unicode letters, marks and numbers plus "-", "." and "_"; whole code points, so characters outside
// the Basic Multilingual Plane survive or go as one.
QString filteredVersion(const QString& version);

} // namespace ScriptInputs
