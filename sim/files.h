// Gateway paths of the simulated disks and configuration files, confined to the
// simulator's file root.
#pragma once

#include <stdint.h>

#include <string>

namespace velsim {

// The host path that stands for gateway_path, when it resolves (symbolic links
// followed) inside gateway_boundary (for example the disk's mount point) under the
// file root. False for anything that would leave it, or for a ".." component.
bool confined_path(const char* gateway_path, const char* gateway_boundary, std::string* out);

// Removes the folders of the model's disks under the file root, so that each is made
// again from the model's sample files when next used (a model loaded in place of
// another must not show the old disks' files). False when one could not be removed.
bool forget_disk_folders();

// The project's tools directory, tried before PATH for commands ("uci").
const char* tools_dir();
void set_tools_dir(const std::string& dir);

// Moves the simulated monotonic clock on.
void advance_monotonic(int64_t ms);
// Seconds the module has asked to sleep since the process started.
int64_t seconds_slept();

}  // namespace velsim
