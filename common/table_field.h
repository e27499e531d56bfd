// The table field reader the write handlers use to take string fields from a table.
#pragma once

#include <stdint.h>

#include <lua.hpp>

namespace velconfig {

// Copies the text of field `name` of the value on top of the stack into buf: a text
// shorter than capacity whole with its terminator, a longer one as exactly its first
// capacity characters (the caller's zero-cleared buffer, one longer, terminates it),
// and at least one character always. A number counts as its text. Any other value
// throws LuaArgError carrying luaL_checklstring's own complaint; indexing raises
// as lua_getfield does. Stack unchanged. Call only from within a handler.
void read_table_field(lua_State* L, const char* name, char* buf, int32_t capacity);

// The usual call: a zero-cleared array of N characters read with capacity N - 1.
template <size_t N>
void read_field(lua_State* L, const char* name, char (&buf)[N]) {
  for (char& c : buf) c = '\0';
  read_table_field(L, name, buf, static_cast<int32_t>(N - 1));
}

}  // namespace velconfig
