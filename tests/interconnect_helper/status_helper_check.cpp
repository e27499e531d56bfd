// The interconnect status collection as the EasyMesh read calls it (table flag clear:
// its fields go into the caller's table, nothing pushed) and as "interConndStatus"
// does (flag set: one new table), on the simulated gateway in a plain interpreter.
#include <stdio.h>
#include <string.h>

#include <lua.hpp>

#include "common/interconnect_status.h"
#include "platform/holders.h"

namespace {

// Each check's outcome, written by the protected part.
bool checks[5];

int run(lua_State* L) {
  lua_newtable(L);
  lua_pushstring(L, "mine");
  lua_setfield(L, -2, "own");
  int top = lua_gettop(L);
  getVelInterConndPluginStatus(L, 0);
  checks[0] = lua_gettop(L) == top;
  lua_getfield(L, -1, "own");
  lua_getfield(L, -2, "devcnt");
  lua_getfield(L, -3, "ap2");
  lua_getfield(L, -1, "mac");
  checks[1] = lua_isstring(L, -4) && strcmp(lua_tostring(L, -4), "mine") == 0;
  checks[2] =
      lua_tonumber(L, -3) == 2 && lua_isstring(L, -1) && strcmp(lua_tostring(L, -1), "A4C1E2107C44") == 0;
  lua_settop(L, top);
  velconfig::getVelInterConndPluginStatus(L, 1);
  checks[3] = lua_gettop(L) == top + 1 && lua_istable(L, -1);
  lua_getfield(L, -1, "appStatus");
  checks[4] = lua_tonumber(L, -1) == 1;
  return 0;
}

}  // namespace

int main() {
  lua_State* L = luaL_newstate();
  // As the entry points do: what the calls kept is released when they end.
  size_t mark = velconfig::call_scope::mark();
  int failures = lua_cpcall(L, run, nullptr) == 0 ? 0 : 1;
  velconfig::call_scope::release_to(mark);
  for (size_t i = 0; i < sizeof checks / sizeof checks[0]; ++i) {
    if (!checks[i]) fprintf(stderr, "status helper: check %zu failed\n", i);
    failures += checks[i] ? 0 : 1;
  }
  lua_close(L);
  return failures == 0 ? 0 : 1;
}
