// The two Lua-visible entry points and the key tables they route by.
#pragma once

#include <stdint.h>

#include <lua.hpp>

#include "common/handler.h"

namespace velconfig {

struct GetKey {
  const char* key;
  GetHandler handler;  // null: not built yet, behaves as an unknown key
};
struct SetKey {
  const char* key;
  SetHandler handler;  // null: not built yet, behaves as an unknown key
};

// Looks key up in the tables, in order; null when unknown or not built.
GetHandler find_get_handler(const char* key);
SetHandler find_set_handler(const char* key);

int get_entry(lua_State* L);
int set_entry(lua_State* L);

}  // namespace velconfig
