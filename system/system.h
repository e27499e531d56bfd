// Login, account and system actions.
#pragma once

#include <stdint.h>

#include <lua.hpp>

namespace velconfig {

int32_t change_account_password(lua_State* L);
int32_t check_admin_password(lua_State* L);
int32_t check_user_password(lua_State* L);
int32_t log_login_event(lua_State* L);

int32_t set_restore(lua_State* L);
int32_t set_fwrestore(lua_State* L);
int32_t set_reboot(lua_State* L);

}  // namespace velconfig
