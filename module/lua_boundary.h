// How Lua errors and C++ meet in this module. Read this before writing a handler.
//
// Lua 5.1 raises errors with longjmp, and any Lua call that allocates can raise:
// out of memory, or an error from a __gc metamethod that the allocation ran. A
// longjmp that crosses a C++ frame owning an object with a destructor skips that
// destructor (formally: undefined behaviour). So:
//  * The entry points (get and set) run the handler under lua_pcall. A Lua error
//    inside it comes back to the entry point, which releases everything the call
//    kept, closes the platform log and raises the same error again.
//  * One ownership rule (platform/holders.h): whatever the platform or the system
//    hands over (arrays, GVariants, Jansson documents, texts, descriptors, child
//    processes) is kept in the call scope at once, and the code holds it through a
//    trivially destructible handle (PlatformList, Scoped...). So no frame a longjmp
//    crosses owns a destructor, and the entry point's release_to(mark) frees what a
//    Lua error skipped. The scope grows as needed; a call keeps as much as it uses.
//  * The exported C function runs outside any Lua call under guarded_c_call, which
//    takes its own mark, releases back to it and turns every exception into the
//    function's failure result.
//  * An argument error found in C++ (a table field that is not text) travels as a
//    LuaArgError exception to the handler's guard inside the protected call; the
//    entry point raises it once everything is released, in the Lua library's
//    wording with the field named (docs/hardening.md).
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
