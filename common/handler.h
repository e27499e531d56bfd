// The shapes of the page handlers, shared by the dispatchers in module/ and the
// feature folders that implement them.
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

}  // namespace velconfig
