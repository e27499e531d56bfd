// The two places where the gateway build and the simulator build differ besides the
// platform library they link: where files live, and the wall clock.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace velconfig {

// Seconds since the epoch.
int64_t wall_clock_now();

// Writes into out where the gateway file at path (for example "/tmp/lanhostsrate")
// lives in this build. False when it does not fit into cap characters.
bool gateway_file_path(const char* path, char* out, size_t cap);

}  // namespace velconfig
