// Where the gateway build and the simulator build differ besides the platform
// library they link. Each is chosen at link time: platform/seams_gateway.cpp or
// sim/seams_sim.cpp.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

namespace velconfig {

// Seconds since the epoch.
int64_t wall_clock_now();

// Milliseconds on a clock that never goes back, for time-outs.
int64_t monotonic_ms();

// Waits the given number of seconds (the simulator, with its clock pinned, moves
// the clock on instead).
void sleep_seconds(unsigned seconds);

// Writes into out where the gateway file at path (for example "/tmp/lanhostsrate")
// lives in this build. False when it does not fit into cap characters.
bool gateway_file_path(const char* path, char* out, size_t cap);

// Writes to a file the module replaces whole (the rate file), as write(2) does. The
// simulator's tests make it write short or fail as a full disk does.
ssize_t write_file_bytes(int fd, const void* data, size_t length);

// The program that runs the command called name ("uci"): a path, or name itself to
// be searched on PATH and then in the gateway's program folders. False when it does
// not fit into cap characters.
bool command_program(const char* name, char* out, size_t cap);

// Where the gateway's program folder dir ("/sbin") is in this build. False when it
// does not fit into cap characters.
bool command_directory(const char* dir, char* out, size_t cap);

// The environment commands run with.
char* const* command_environment();

// The address of the cloud client's socket, given the gateway's LAN IPv4 address.
// False when it does not fit into cap characters.
bool cloud_client_host(const char* lan_ipv4, char* out, size_t cap);

// How long the app market request waits for the cloud client's reply once it is
// sent, in milliseconds: 20000 on the gateway; the simulator's tests shorten it.
int app_market_timeout_ms();

}  // namespace velconfig
