#pragma once

// What nubra-cli tells the shell. Documented in docs/cli.md; scripts rely on these numbers.
namespace ExitCode {

inline constexpr int ok = 0;
// The lookup or the update check failed; the reason is on standard error.
inline constexpr int failed = 1;
// The command line could not be understood.
inline constexpr int usage = 2;
// The history database or an output file could not be opened, read or written.
inline constexpr int storage = 3;

} // namespace ExitCode
