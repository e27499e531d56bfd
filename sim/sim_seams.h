// What the simulator offers the module's seams (clocks, sleep, file root, commands).
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

// Seconds since the epoch: the pinned time when tests pinned it, else the system's.
int64_t velconfig_sim_now(void);
// The monotonic clock in milliseconds, plus whatever tests moved it on by.
int64_t velconfig_sim_monotonic_ms(void);
// Sleeps; with the clock pinned, moves the pinned clock on instead (tests never wait).
void velconfig_sim_sleep(unsigned seconds);
// Directory that stands for the gateway's "/" for the files the module reads and writes;
// "" when the root is refused (not the user's own, writable by others: see files.h).
const char* velconfig_sim_file_root(void);
// Directory of the project's own command-line tools (the PC's "uci"), tried before PATH.
const char* velconfig_sim_tools_dir(void);
// This process's environment with VELCONFIG_ROOT set to the file root and the tools
// directory first on PATH, as a new array the caller frees with g_strfreev.
char** velconfig_sim_command_environment(void);
// write(2) for the files the module replaces whole, with the faults tests set: under
// "write_short" it writes half of what was asked (at least one byte); otherwise
// under "write" it fails with the fault's code as errno (28, ENOSPC: a full disk), or with
// code 0 writes nothing and reports no error.
ssize_t velconfig_sim_write(int fd, const void* data, size_t length);
// Writes the gateway file at gateway_path to host_path from the model when the model
// describes it and it is missing (the applications' /etc/config files).
void velconfig_sim_provide_file(const char* gateway_path, const char* host_path);
// The app market request's reply time-out in milliseconds (20000 unless tests shorten it).
int velconfig_sim_app_market_timeout_ms(void);

#ifdef __cplusplus
}
#endif
