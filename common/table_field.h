// The table field reader the write handlers use to take string fields from a table.
#pragma once

#include <stdint.h>

#include <lua.hpp>

namespace velconfig {

// Copies the text of field `name` of the value on top of the stack into buf and says
// whether it is a clean text. A write sends what it reads to the platform, whose D-Bus
// strings end at the first NUL and must be UTF-8, so a text holding a NUL byte or one
// that is not UTF-8 over its whole length is refused: false, buf holds the empty text,
// and the handler answers its failure result before it writes anything. A clean text
// shorter than capacity is copied whole with its terminator; a longer one is cut at
// capacity characters (at least one), backing off to the start of a character the cut
// would split, so what is copied is UTF-8 too. Cut at exactly capacity it has no
// terminator of its own (the caller's zero-cleared buffer, one longer, supplies it).
// A number counts as its text. Any other value throws LuaArgError carrying
// luaL_checklstring's own complaint with the field named ("string expected for field
// 'dhcpEnbl', got nil"); indexing raises as lua_getfield does. Stack
// unchanged. Call only from within a handler.
[[nodiscard]] bool read_table_field(lua_State* L, const char* name, char* buf, int32_t capacity);

// How a secret read came out.
enum class SecretText { kFits, kNotClean, kTooLong };

// Reads field `name` as read_table_field does, for a secret (password, key, LOID): a
// clean text longer than capacity is never cut, since a cut secret locks its owner
// out or stops the clients joining; it is kTooLong and buf holds the empty text.
[[nodiscard]] SecretText read_table_secret(lua_State* L, const char* name, char* buf, int32_t capacity);

// The usual call: a zero-cleared array of N characters read with capacity N - 1.
template <size_t N>
[[nodiscard]] bool read_field(lua_State* L, const char* name, char (&buf)[N]) {
  for (char& c : buf) c = '\0';
  return read_table_field(L, name, buf, static_cast<int32_t>(N - 1));
}

template <size_t N>
[[nodiscard]] SecretText read_secret(lua_State* L, const char* name, char (&buf)[N]) {
  for (char& c : buf) c = '\0';
  return read_table_secret(L, name, buf, static_cast<int32_t>(N - 1));
}

// No NUL byte inside, and UTF-8 over the whole length.
bool clean_text(const char* text, size_t length);

// What a write answers when a field it read is not a clean text.
constexpr int32_t kTextRefused = 1;

// The text on top of the stack, as luaL_checkstring takes it (a number counts as its
// text, converted in place), with its whole length and whether it is a clean text
// (no NUL byte, UTF-8 throughout). Any other value throws LuaArgError carrying
// luaL_checklstring's own complaint. Call only from within a handler.
struct TopText {
  const char* text;
  size_t length;
  bool clean;
};
TopText read_top_text(lua_State* L);

}  // namespace velconfig
