// What the benchmarks share: their command line, the clock they time with, and a
// scratch file root in memory where the host has one.
#pragma once

#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include <string>

namespace velbench {

// The call count of argv[2] (default when absent); 0 after printing usage when it is
// not a number from 1 to 10^8.
inline int call_count(int argc, char** argv, long fallback, const char* usage) {
  long calls = argc > 2 ? strtol(argv[2], nullptr, 10) : fallback;
  if (calls <= 0 || calls > 100000000) {
    fprintf(stderr, "usage: %s\n", usage);
    return 0;
  }
  return static_cast<int>(calls);
}

inline double seconds_now() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// A new folder under /dev/shm (the gateway's /tmp is in memory), else under /tmp;
// empty when neither can be made.
inline std::string scratch_root() {
  char shm_root[] = "/dev/shm/velconfig-bench-XXXXXX";
  char tmp_root[] = "/tmp/velconfig-bench-XXXXXX";
  const char* made = mkdtemp(shm_root);
  if (made == nullptr) made = mkdtemp(tmp_root);
  return made != nullptr ? made : "";
}

}  // namespace velbench
