// Result table helpers: create, then key, value, lua_settable at -3, as the pages expect.
#include "common/result.h"

#include <string.h>

#include "platform/text.h"

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

// The pages ask for hundreds of rows, so the key is formed by hand.
void begin_row_key(lua_State* L, const char* prefix, size_t prefix_length, unsigned n) {
  char key[16 + 10];  // the longest prefix and the most digits of an unsigned
  memcpy(key, prefix, prefix_length);
  char digits[10];
  size_t count = 0;
  do {
    digits[count++] = static_cast<char>('0' + n % 10);
    n /= 10;
  } while (n != 0);
  size_t length = prefix_length;
  while (count > 0) key[length++] = digits[--count];
  lua_pushlstring(L, key, length);
  lua_newtable(L);
}

void end_row(lua_State* L) { lua_settable(L, -3); }

}  // namespace velconfig
