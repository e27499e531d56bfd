// Table field reader: the raising Lua calls run under lua_pcall, so a bad field
// becomes a C++ exception instead of a longjmp through handler frames.
#include "module/table_field.h"

#include <stdio.h>
#include <string.h>

#include "module/lua_boundary.h"

namespace velconfig {
namespace {

struct FieldProbe {
  const char* name;
  char* buf;
  int32_t capacity;
  int type;
};

// Runs protected: index 1 is the table, index 2 the probe.
int probe_field(lua_State* L) {
  auto* probe = static_cast<FieldProbe*>(lua_touserdata(L, 2));
  lua_getfield(L, 1, probe->name);
  probe->type = lua_type(L, -1);
  if (probe->type != LUA_TSTRING && probe->type != LUA_TNUMBER) return 0;
  const char* text = lua_tostring(L, -1);
  int32_t i = 0;
  do {
    probe->buf[i] = text[i];
    if (text[i] == '\0') break;
    ++i;
  } while (i < probe->capacity);
  return 0;
}

}  // namespace

void read_table_field(lua_State* L, const char* name, char* buf, int32_t capacity) {
  FieldProbe probe{name, buf, capacity, LUA_TNONE};
  lua_pushcfunction(L, probe_field);
  lua_pushvalue(L, -2);
  lua_pushlightuserdata(L, &probe);
  if (lua_pcall(L, 2, 0, 0) != 0) {
    char text[512];
    const char* message = lua_tostring(L, -1);
    if (message != nullptr) {
      snprintf(text, sizeof text, "%s", message);
    } else {
      snprintf(text, sizeof text, "(error object is a %s value)", luaL_typename(L, -1));
    }
    lua_pop(L, 1);
    throw LuaArgError(LuaArgError::Kind::kRaised, text);
  }
  if (probe.type != LUA_TSTRING && probe.type != LUA_TNUMBER) {
    char text[128];
    snprintf(text, sizeof text, "%s expected, got %s", lua_typename(L, LUA_TSTRING),
             lua_typename(L, probe.type));
    throw LuaArgError(LuaArgError::Kind::kExpectedString, text);
  }
}

}  // namespace velconfig
