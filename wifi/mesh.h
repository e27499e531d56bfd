// The EasyMesh page: mesh settings and roaming thresholds. The write handler reads its
// table from the top of the stack and may raise the table field reader's Lua error
// (as a LuaArgError) before it sends anything.
#pragma once

#include <stdint.h>

#include <lua.hpp>

#include "common/handler.h"

namespace velconfig {

// "easymesh_config"
void get_easymesh_config(lua_State* L, const GetArgs& args);
int32_t set_easymesh_config(lua_State* L);
// "hasMesh": 1 without Wi-Fi, with a readable "MAPAgent", or with mesh on; else 0.
void get_has_mesh(lua_State* L, const GetArgs& args);

}  // namespace velconfig
