#pragma once

#include <QByteArray>
#include <QString>

// Standard output and standard error, written as UTF-8 and flushed at once so that a streamed
// explanation shows while it arrives, also through a pipe.
//
// Much of what is printed comes from the service or from the history, and control characters in it
// could move the cursor, retitle the window or rewrite what the terminal shows. Text is therefore
// always printed without them (line feeds and tabs stay): they have no place in text meant for
// reading, so nothing of value is lost. Data (JSON lines, exports) is kept exact for the program or
// file that receives it, and cleaned the same way only when it lands on a terminal.
namespace Console {

void out(const QString& text);
void err(const QString& text);
// UTF-8 data for standard output.
void data(const QByteArray& bytes);
// "nubra-cli: <message>" and a line feed on standard error.
void error(const QString& message);

} // namespace Console
