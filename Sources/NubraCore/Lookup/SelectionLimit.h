#pragma once

#include <QString>

#include <optional>

// The card's own limit on what it sends, separate from (and above) what capture keeps.
namespace SelectionLimit {

inline constexpr int MaxCharacters = 3000;

// User-perceived characters (extended grapheme clusters), so an emoji or a letter with a combining
// accent counts once.
int characterCount(const QString& text);

// The first `count` user-perceived characters of `text` (all of it when it is shorter).
QString prefix(const QString& text, int count);

// The localized refusal for a selection over the limit, or nothing when it may be sent; exactly
// MaxCharacters is still accepted.
std::optional<QString> refusal(const QString& selectedText);

} // namespace SelectionLimit
