#pragma once

#include <QString>

// The permission bits of the file or folder at `path` itself (a link is not followed), such as 0600;
// -1 when there is nothing there.
int fileMode(const QString& path);
// Sets them; false when that fails.
bool setFileMode(const QString& path, int mode);
