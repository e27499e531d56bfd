// One "getMallUrl" call for the app market checks, run under lua_cpcall: what the
// platform handed over is released as the entry point releases it, and the call's
// "result" is kept in mall_result.
#pragma once

#include <lua.hpp>

#include "apps/apps.h"
#include "platform/holders.h"

inline int mall_result = -1;

inline int call_mall_url(lua_State* L) {
  size_t mark = velconfig::call_scope::mark();
  velconfig::get_mall_url(L, velconfig::GetArgs{nullptr, nullptr});
  velconfig::call_scope::release_to(mark);
  lua_getfield(L, -1, "result");
  mall_result = static_cast<int>(lua_tonumber(L, -1));
  return 0;
}
