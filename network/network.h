// Network services pages: LAN and DHCP, DDNS, IPTV, port mapping and per-host
// Internet access. Write handlers read their table from the top of the stack and
// may raise the table field reader's Lua error (as a LuaArgError) before sending.
#pragma once

#include <stdint.h>

#include "common/handler.h"

namespace velconfig {

void get_lan(lua_State* L, const GetArgs& args);
int32_t set_lan(lua_State* L);

void get_ddns(lua_State* L, const GetArgs& args);
int32_t set_ddns(lua_State* L);

void get_iptv(lua_State* L, const GetArgs& args);
int32_t set_iptv(lua_State* L);

void get_pm_lists(lua_State* L, const GetArgs& args);
int32_t set_pm_single(lua_State* L);
int32_t set_pm_all(lua_State* L);

void get_black_hosts(lua_State* L, const GetArgs& args);
int32_t set_host_settings(lua_State* L);
int32_t set_rm_black_host(lua_State* L);

}  // namespace velconfig
