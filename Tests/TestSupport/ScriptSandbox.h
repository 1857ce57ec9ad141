#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

// Helpers for tests that run generated shell scripts for real inside a bubblewrap sandbox.
namespace ScriptSandbox {

// Creates the parent folders as needed; `executable` adds execute permission for everyone.
bool writeFile(const QString& path, const QByteArray& content, bool executable = false);
// The file's bytes, or "<missing>" when it cannot be read.
QByteArray readFile(const QString& path);

// bwrap arguments that bind the host's top-level folders except `privateDirs` (names such as "tmp"),
// which become root/<name>; `root` itself stays visible at its own path. No mount point is ever
// created on the real root file system.
QStringList arguments(const QString& root, const QStringList& privateDirs);

// Empty when such a sandbox can be set up here; otherwise the reason it cannot, for a skip message.
QString unavailableReason(const QStringList& privateDirs);

} // namespace ScriptSandbox
