#pragma once

#include <QString>
#include <QStringView>

// Keeping text that came from elsewhere from steering what displays or stores it: C0 controls
// (U+0000–U+001F, line feed, carriage return and escape among them), DEL and the C1 controls
// (U+0080–U+009F) move a terminal's cursor, set its title or end a log line early.
namespace ControlCharacters {

bool isControl(char16_t c);

// Every control written out visibly ("\n", "\r", "\t", else "\x1b"), so the text stays on one line.
QString escaped(QStringView text);

// The text without its controls, except line feeds and tabs, which belong to a text's layout.
QString stripped(QStringView text);

} // namespace ControlCharacters
