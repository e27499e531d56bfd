// The interconnect plugin's page: starting it, its two synchronisation switches,
// one access point's Wi-Fi, and the status collection the EasyMesh read shares.
#pragma once

#include <stdint.h>

#include <lua.hpp>

#include "common/handler.h"

namespace velconfig {

int32_t set_start_interconnd(lua_State* L);
int32_t set_sync_config(lua_State* L);
int32_t set_sync_onoff(lua_State* L);
int32_t set_config_ap(lua_State* L);
void get_interconnd_status(lua_State* L, const GetArgs& args);

// The plugin's state, both switches and its access points. table_flag set: a new
// table with the fields is left on the stack; clear: the fields go into the table on
// top of the stack and nothing is pushed. May raise Lua's out-of-memory error.
void getVelInterConndPluginStatus(lua_State* L, int32_t table_flag);

}  // namespace velconfig

// Callers outside the namespace use the same name.
using velconfig::getVelInterConndPluginStatus;
