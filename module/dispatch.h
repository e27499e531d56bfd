// The two Lua-visible entry points and the shapes of the handlers they route to.
#pragma once

#include <stdint.h>

#include <lua.hpp>

namespace velconfig {

// Optional text arguments of get; null when the page did not pass them.
struct GetArgs {
  const char* a1;
  const char* a2;
};

// A get handler pushes exactly one value.
using GetHandler = void (*)(lua_State* L, const GetArgs& args);
// A set handler reads its input from the top of the stack and yields a result code.
using SetHandler = int32_t (*)(lua_State* L);

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
