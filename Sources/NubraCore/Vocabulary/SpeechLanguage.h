#pragma once

#include <QList>
#include <QLocale>
#include <QString>

#include <optional>

// Which language a looked-up text is read aloud in, and which of a speech engine's locales fits it.
namespace SpeechLanguage {

// The language the text is written in, from its letters: Chinese for Han characters (Traditional when
// characters only Traditional Chinese uses outnumber those only Simplified Chinese uses), Japanese for
// kana, Korean for Hangul, English for Latin letters; `interface` when the text has none of these.
QLocale forText(const QString& text, const QLocale& interface);

// The engine locale to speak `wanted` with: the same language, preferring the same script, then the
// same territory. None when the engine has no voice for that language.
std::optional<QLocale> bestMatch(const QLocale& wanted, const QList<QLocale>& available);

} // namespace SpeechLanguage
