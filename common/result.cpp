// Result table helpers: create, then key, value, lua_settable at -3, as the pages expect.
#include "common/result.h"

#include <stdio.h>

namespace velconfig {

void set_text(lua_State* L, const char* key, std::string_view value) {
  lua_pushstring(L, key);
  lua_pushlstring(L, value.data(), value.size());
  lua_settable(L, -3);
}

void set_number(lua_State* L, const char* key, lua_Number value) {
  lua_pushstring(L, key);
  lua_pushnumber(L, value);
  lua_settable(L, -3);
}

void set_bool(lua_State* L, const char* key, bool value) {
  lua_pushstring(L, key);
  lua_pushboolean(L, value ? 1 : 0);
  lua_settable(L, -3);
}

void begin_row(lua_State* L, const char* format, int n) {
  char key[32];
  snprintf(key, sizeof key, format, n);
  lua_pushstring(L, key);
  lua_newtable(L);
}

void end_row(lua_State* L) { lua_settable(L, -3); }

}  // namespace velconfig
