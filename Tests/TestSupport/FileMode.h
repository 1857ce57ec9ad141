#pragma once

#include <QByteArray>
#include <QString>

// The permission bits of the file or folder at `path` itself (a link is not followed), such as 0600;
// -1 when there is nothing there.
int fileMode(const QString& path);
// Sets them; false when that fails.
bool setFileMode(const QString& path, int mode);

// Writes `content` to `relativePath` under the folder `root`, making the folders on the way; the file's
// path. Ends the test program when it cannot.
QString writeFileUnder(const QString& root, const QString& relativePath, const QByteArray& content);
