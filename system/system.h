// Login, account and system actions.
#pragma once

#include <stdint.h>

#include <lua.hpp>

namespace velconfig {

int32_t set_restore(lua_State* L);
int32_t set_fwrestore(lua_State* L);
int32_t set_reboot(lua_State* L);

}  // namespace velconfig
