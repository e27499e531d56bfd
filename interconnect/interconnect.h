// The interconnect plugin's page: starting it, its two synchronisation switches,
// one access point's Wi-Fi, and its status (collected in common/interconnect_status.h,
// which the EasyMesh read shares).
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

}  // namespace velconfig
