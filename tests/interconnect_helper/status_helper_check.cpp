// The interconnect status collection as the EasyMesh read calls it: with the table
// flag clear it adds its fields to the caller's table and pushes nothing; set, it
// leaves one new table. Run against the simulated gateway in a plain interpreter.
#include <stdio.h>
#include <string.h>

#include <lua.hpp>

#include "interconnect/interconnect.h"
#include "platform/holders.h"

namespace {

int failures = 0;

#define CHECK(cond)                                                            \
  do {                                                                         \
    if (!(cond)) {                                                             \
      fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
      ++failures;                                                              \
    }                                                                          \
  } while (0)

struct Seen {
  int pushed_clear;
  int pushed_set;
  bool kept_own_field;
  lua_Number app_status;
  lua_Number devcnt;
  char ap2_mac[32];
  bool set_table_has_devcnt;
  size_t kept_after;
  size_t kept_before;
};

lua_Number number_field(lua_State* L, const char* key) {
  lua_getfield(L, -1, key);
  lua_Number n = lua_tonumber(L, -1);
  lua_pop(L, 1);
  return n;
}

int run(lua_State* L) {
  Seen* seen = static_cast<Seen*>(lua_touserdata(L, 1));
  seen->kept_before = velconfig::call_scope::size();

  lua_newtable(L);
  lua_pushstring(L, "mine");
  lua_setfield(L, -2, "own");
  int top = lua_gettop(L);
  getVelInterConndPluginStatus(L, 0);
  seen->pushed_clear = lua_gettop(L) - top;
  lua_getfield(L, -1, "own");
  seen->kept_own_field = lua_isstring(L, -1) && strcmp(lua_tostring(L, -1), "mine") == 0;
  lua_pop(L, 1);
  seen->app_status = number_field(L, "appStatus");
  seen->devcnt = number_field(L, "devcnt");
  lua_getfield(L, -1, "ap2");
  lua_getfield(L, -1, "mac");
  snprintf(seen->ap2_mac, sizeof seen->ap2_mac, "%s", lua_isstring(L, -1) ? lua_tostring(L, -1) : "");
  lua_pop(L, 3);

  top = lua_gettop(L);
  velconfig::getVelInterConndPluginStatus(L, 1);
  seen->pushed_set = lua_gettop(L) - top;
  seen->set_table_has_devcnt = lua_istable(L, -1) && number_field(L, "devcnt") == seen->devcnt;
  seen->kept_after = velconfig::call_scope::size();
  return 0;
}

}  // namespace

int main() {
  lua_State* L = luaL_newstate();
  Seen seen{};
  CHECK(lua_cpcall(L, run, &seen) == 0);
  CHECK(seen.pushed_clear == 0);
  CHECK(seen.kept_own_field);
  CHECK(seen.app_status == 1);
  CHECK(seen.devcnt == 2);
  CHECK(strcmp(seen.ap2_mac, "A4C1E2107C44") == 0);
  CHECK(seen.pushed_set == 1);
  CHECK(seen.set_table_has_devcnt);
  // the application list, replies and documents are given back before it returns
  CHECK(seen.kept_after == seen.kept_before);
  lua_close(L);
  if (failures == 0) printf("status helper: all checks passed\n");
  return failures == 0 ? 0 : 1;
}
