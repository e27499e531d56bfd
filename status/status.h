// The status pages: LAN host list, home-page overview, status figures and the
// gateway's identity and addresses.
#pragma once

#include <stdint.h>

#include <lua.hpp>

#include "common/handler.h"
#include "platform/records.h"

namespace velconfig {

// "hostsInfo": filter 0 wired, 1 wireless, anything else all devices.
void get_hosts_info(lua_State* L, int32_t filter);
// "allInfo"
void get_all_info(lua_State* L, const GetArgs& args);
// "gwStatus"
void get_gw_status(lua_State* L, const GetArgs& args);
// "gwInfo": all is true when the page asked for "all" (the Wi-Fi and PPPoE fields).
void get_gw_info(lua_State* L, bool all);
// "gwIPs"
void get_gw_ips(lua_State* L, const GetArgs& args);
// "devType"
void get_dev_type(lua_State* L, const GetArgs& args);
// "hasPots": 1 when the Capability text's first field is not 0 or cannot be read.
void get_has_pots(lua_State* L, const GetArgs& args);

}  // namespace velconfig
