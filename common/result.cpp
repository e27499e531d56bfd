// Result table helpers: create, then key, value, lua_settable at -3, as the pages expect.
#include "common/result.h"

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

// The row key as snprintf(format, n) would form it into 32 characters; every format is
// a prefix and "%d", and the pages ask for hundreds of rows, so it is formed by hand.
void begin_row(lua_State* L, const char* format, int n) {
  char key[32];
  constexpr size_t kNumberRoom = 11;  // "-2147483648"
  size_t length = 0;
  for (const char* f = format; *f != '\0' && length < sizeof key - 1 - kNumberRoom; ++f) {
    if (f[0] != '%' || f[1] != 'd') {
      key[length++] = *f;
      continue;
    }
    ++f;
    unsigned magnitude = n < 0 ? 0u - static_cast<unsigned>(n) : static_cast<unsigned>(n);
    if (n < 0) key[length++] = '-';
    char digits[10];
    size_t count = 0;
    do {
      digits[count++] = static_cast<char>('0' + magnitude % 10);
      magnitude /= 10;
    } while (magnitude != 0);
    while (count > 0) key[length++] = digits[--count];
  }
  lua_pushlstring(L, key, length);
  lua_newtable(L);
}

void end_row(lua_State* L) { lua_settable(L, -3); }

}  // namespace velconfig
