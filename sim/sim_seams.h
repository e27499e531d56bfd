// What the simulator offers the module's two seams (clock and file root).
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Seconds since the epoch: the pinned time when tests pinned it, else the system's.
int64_t velconfig_sim_now(void);
// Directory that stands for the gateway's "/" for the files the module reads and writes.
const char* velconfig_sim_file_root(void);

#ifdef __cplusplus
}
#endif
