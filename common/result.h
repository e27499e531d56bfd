// Building result tables field by field on the table at the top of the stack.
// These push onto the Lua stack and so may raise Lua's out-of-memory error.
#pragma once

#include <lua.hpp>
#include <string_view>

namespace velconfig {

void set_text(lua_State* L, const char* key, std::string_view value);
void set_number(lua_State* L, const char* key, lua_Number value);
void set_bool(lua_State* L, const char* key, bool value);

// Pushes the row key formed from format and n (for example "dev%d", 3) and a new
// table for the row; end_row stores the row into the table below it.
void begin_row(lua_State* L, const char* format, int n);
void end_row(lua_State* L);

}  // namespace velconfig
