#pragma once

#include <QString>

// Values as the desktop-entry format writes them, shared by the entries Nubra writes itself.
namespace DesktopEntryText {

// A string value: backslash and the control characters escaped.
QString escaped(const QString& text);
// A program as one quoted Exec argument, before the string escaping above: inside the quotes ", `,
// $ and \ take a backslash, and a literal % is doubled so that it is not read as a field code.
QString quotedArgument(const QString& program);

} // namespace DesktopEntryText
