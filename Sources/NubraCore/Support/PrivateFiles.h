#pragma once

#include <QString>

// Files and folders that only their owner may read: the history, the settings, and the folders that
// hold them. Group and other access is taken away from what is already there, so a file an older
// version left readable becomes private the next time it is opened. Links are never followed and
// nothing of another user's is changed. Failures are left to the caller's own open to report.
namespace PrivateFiles {

// Creates the folder (missing parents get the usual permissions), or makes an existing one private.
void ensureFolder(const QString& path);
// Creates an empty file when there is none, or makes an existing one private.
void ensureFile(const QString& path);
// Makes an existing file or folder private; a missing one stays missing.
void restrict(const QString& path);

} // namespace PrivateFiles
