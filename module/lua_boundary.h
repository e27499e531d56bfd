// How Lua errors and C++ meet in this module. Read this before writing a handler.
//
// Lua 5.1 raises errors with longjmp, and any Lua call that allocates can raise:
// out of memory, or an error from a __gc metamethod that the allocation ran. A
// longjmp that crosses a C++ frame owning an object with a destructor skips that
// destructor (formally: undefined behaviour). So:
//  * The entry points (get and set) run the handler under lua_pcall. A Lua error
//    inside it comes back to the entry point, which releases the call's platform
//    memory, closes the platform log and raises the same error again.
//  * While a handler calls into Lua it owns no object with a destructor: lists are
//    PlatformList handles whose arrays live in the call scope (platform/holders.h);
//    OwnedVariant/OwnedText only span code that calls nothing in Lua.
//  * An argument error found in C++ (a table field that is not text) travels as a
//    LuaArgError exception to the handler's guard inside the protected call; the
//    entry point raises it once everything is released, with exactly the message
//    the Lua library gives.
//  * No exception leaves an extern "C" function or a lua_CFunction.
#pragma once

#include <lua.hpp>

#include "common/lua_error.h"

namespace velconfig {

// What an entry point keeps of a failed handler after the catch has ended.
struct PendingError {
  enum class Kind { kNone, kArgument, kOther };
  Kind kind = Kind::kNone;
  char text[256] = {};

  void capture(Kind k, const char* message);
};

}  // namespace velconfig
