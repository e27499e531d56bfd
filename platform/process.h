// External commands, run by argument vector (never through a shell), with their
// pipe and process kept in the call scope so no path leaves either behind.
#pragma once

#include <stddef.h>

namespace velconfig {

constexpr int kCommandFailed = -1;

// How long a uci command may run before it is killed: it edits one small file and ends
// at once, and one that hangs must not hold the web page that called it.
constexpr int kUciTimeoutMs = 5000;

// Runs argv[0] with the arguments argv (null-terminated), its output discarded, and
// waits at most timeout_ms for it to end. The exit status (0-255), or
// kCommandFailed when it could not start, was killed by a signal or ran too long
// (then it is killed).
int run_command(const char* const argv[], int timeout_ms);

// Like run_command, and copies the first line of the command's standard output,
// without its line end, into line (always terminated; cut at cap - 1 characters).
// The rest of the output is read and dropped.
int run_command_line(const char* const argv[], char* line, size_t cap, int timeout_ms);

}  // namespace velconfig
