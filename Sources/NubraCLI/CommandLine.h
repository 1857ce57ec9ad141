#pragma once

#include <QStringList>

// The top level of nubra-cli: picks the command named by the first argument.
namespace CommandLine {

// `arguments` without the program name. Returns the process's exit code.
int run(const QStringList& arguments);

} // namespace CommandLine
