// The read queries that belong to no feature page.
#pragma once

#include "module/dispatch.h"

namespace velconfig {

void get_has_wifi(lua_State* L, const GetArgs& args);
void get_has_pots(lua_State* L, const GetArgs& args);
void get_has_usb(lua_State* L, const GetArgs& args);
void get_app_config(lua_State* L, const GetArgs& args);

}  // namespace velconfig
