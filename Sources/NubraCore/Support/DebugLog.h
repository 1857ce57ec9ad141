#pragma once

#include <QString>

// The always-on debug log: one line per call, "<yyyy-MM-dd HH:mm:ss +0000> <message>\n", in UTF-8.
// An existing file is appended to; a missing one is written whole, atomically. Every failure is ignored.
void nbDebug(const QString& message);

namespace DebugLog {

inline constexpr const char* defaultPath = "/tmp/nb-debug.log";

// The file nbDebug writes to: defaultPath, or NUBRA_DEBUG_LOG when that is set. Tests point it at a
// file of their own.
QString path();
void setPath(const QString& path);

// The line nbDebug writes for `message` at the current time, line feed included.
QByteArray formatLine(const QString& message);

} // namespace DebugLog
