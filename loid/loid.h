// The LOID registration page. "setloid" reads its table from the top of the stack and
// may raise the table field reader's Lua error (as a LuaArgError) before it sends
// anything.
#pragma once

#include <stdint.h>

#include <lua.hpp>

#include "common/handler.h"

namespace velconfig {

// "setloid": 0, the seconds a hold-off has still to run, or the platform's code.
int32_t set_loid(lua_State* L);
// "registerloid": the status the registration request reports.
int32_t set_register_loid(lua_State* L);
// "checkLoid": the registration status as an unsigned number.
void get_check_loid(lua_State* L, const GetArgs& args);
// "regProcess": the progress text; refreshes the hold-off mark on 405, 407 and 409.
void get_reg_process(lua_State* L, const GetArgs& args);
// "itvVoipReg": whether IPTV and voice were delivered.
void get_itv_voip_reg(lua_State* L, const GetArgs& args);

}  // namespace velconfig
