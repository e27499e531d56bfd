// Building result tables field by field on the table at the top of the stack.
// These push onto the Lua stack and so may raise Lua's out-of-memory error.
#pragma once

#include <stddef.h>

#include <lua.hpp>
#include <string_view>

namespace velconfig {

void set_text(lua_State* L, const char* key, std::string_view value);
void set_number(lua_State* L, const char* key, lua_Number value);
void set_bool(lua_State* L, const char* key, bool value);

// Pushes the row key formed from format and n ("dev%d" and 3 give "dev3") and a new
// table for the row; end_row stores the row into the table below it. Every format is a
// literal: a short prefix, then "%d" for the row's number.
void begin_row_key(lua_State* L, const char* prefix, size_t prefix_length, unsigned n);
template <size_t N>
void begin_row(lua_State* L, const char (&format)[N], unsigned n) {
  static_assert(N >= 3 && N <= 3 + 16, "a row key is a prefix of at most 16 characters and \"%d\"");
  begin_row_key(L, format, N - 3, n);
}
void end_row(lua_State* L);

}  // namespace velconfig
