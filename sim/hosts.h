// The simulated LAN hosts as the platform's LAN host records show them.
#pragma once

#include <jansson.h>

#include "platform/records.h"

namespace velsim {

constexpr const char* kLanHostPathPrefix = "/com/zom/igd1/Info/LANHost/";

// The model host whose record path is path, or null.
json_t* host_at_path(const char* path);
// Fills a (cleared) base record from a model host, counters advanced to now.
void fill_lan_host(json_t* host, ZoVelLanHost* record);
void fill_lan_host_ext(json_t* host, ZoVelLanHostExt* record);

}  // namespace velsim
