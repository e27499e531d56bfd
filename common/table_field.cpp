// Table field reader. It runs inside the handler's protected call, so a metamethod
// that raises, or a value that cannot be indexed, raises as lua_getfield raises; a
// field that is not text is reported by exception, to be raised by the entry point
// as luaL_checklstring would.
#include "common/table_field.h"

#include <stdio.h>

#include "common/lua_error.h"

namespace velconfig {

LuaArgError::LuaArgError(const char* text) { snprintf(text_, sizeof text_, "%s", text); }

void read_table_field(lua_State* L, const char* name, char* buf, int32_t capacity) {
  lua_getfield(L, -1, name);
  int type = lua_type(L, -1);
  if (type != LUA_TSTRING && type != LUA_TNUMBER) {
    char text[128];
    snprintf(text, sizeof text, "%s expected, got %s", lua_typename(L, LUA_TSTRING), lua_typename(L, type));
    lua_pop(L, 1);
    throw LuaArgError(text);
  }
  const char* value = lua_tostring(L, -1);
  int32_t i = 0;
  do {
    buf[i] = value[i];
    if (value[i] == '\0') break;
    ++i;
  } while (i < capacity);
  lua_pop(L, 1);
}

}  // namespace velconfig
