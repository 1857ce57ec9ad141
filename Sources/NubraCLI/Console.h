#pragma once

#include <QByteArray>
#include <QString>

// Standard output and standard error, written as UTF-8 and flushed at once so that a streamed
// explanation shows while it arrives, also through a pipe.
namespace Console {

void out(const QByteArray& bytes);
void out(const QString& text);
void err(const QString& text);
// "nubra-cli: <message>" and a line feed on standard error.
void error(const QString& message);

} // namespace Console
