#pragma once

#include <QString>

// The always-on debug log: one line per call, "<yyyy-MM-dd HH:mm:ss +0000> <message>\n", in UTF-8.
// Control characters in the message are written escaped ("\n", "\x1b"), so a call is always exactly
// one line. The line is appended in one write; a missing log is created, readable by this user only.
// A path that is a link, or a file that is not this user's own plain file, is left alone. Every
// failure is ignored.
void nbDebug(const QString& message);

namespace DebugLog {

inline constexpr const char* defaultPath = "/tmp/nb-debug.log";

// The file nbDebug writes to: defaultPath, or NUBRA_DEBUG_LOG when that is set. Tests point it at a
// file of their own.
QString path();
void setPath(const QString& path);

// The line nbDebug writes for `message` at the current time, line feed included.
QByteArray formatLine(const QString& message);

// Appends `message` and a line feed without a time stamp, under the same rules as nbDebug, but only
// to a log that already exists.
void appendUnstamped(const QString& message);

} // namespace DebugLog
