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

// Writes `root`/bin/`name`: a bash stand-in for a tool that appends its arguments as one line to
// `root`/log/`name`, then runs `body`.
bool writeStandIn(const QString& root, const QString& name, const QByteArray& body);
// What the stand-in `name` logged; empty when it was never called.
QString standInLog(const QString& root, const QString& name);

// bwrap arguments that bind the host's top-level folders except `privateDirs` (names such as "tmp"),
// which become root/<name>; `root` itself stays visible at its own path. No mount point is ever
// created on the real root file system.
QStringList arguments(const QString& root, const QStringList& privateDirs);

// Runs `script` with `scriptArguments` under bash inside the sandbox made by `sandboxArguments` (see
// arguments()), its output
// passed through. The stand-in tools in `root`/bin come first on PATH and log to `root`/log
// (NUBRA_TEST_LOG); `assignments` ("NAME=value") are added to the environment. Its exit status, -2
// when it ran past a minute (it is then killed), -3 when it crashed.
int runBash(const QStringList& sandboxArguments, const QString& script, const QString& root,
            const QStringList& assignments, const QStringList& scriptArguments = {});

// Empty when such a sandbox can be set up here; otherwise the reason it cannot, for a skip message.
QString unavailableReason(const QStringList& privateDirs);

} // namespace ScriptSandbox
