// The interconnect plugin's status, shown by the interconnect page on its own and by
// the EasyMesh read inside its table.
#pragma once

#include <stdint.h>

#include <lua.hpp>

namespace velconfig {

// The plugin's state, both switches and its access points. table_flag set: a new
// table with the fields is left on the stack; clear: the fields go into the table on
// top of the stack and nothing is pushed. May raise Lua's out-of-memory error.
void getVelInterConndPluginStatus(lua_State* L, int32_t table_flag);

}  // namespace velconfig

// Callers outside the namespace use the same name.
using velconfig::getVelInterConndPluginStatus;
