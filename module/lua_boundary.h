// How Lua errors and C++ meet in this module. Read this before writing a handler.
//
// Lua 5.1 raises errors with longjmp. A longjmp that crosses a C++ frame owning an
// object with a destructor skips that destructor (formally: undefined behaviour).
// So:
//  * Handlers never call a Lua function that can raise on bad input while they own
//    such objects. Reading a table field goes through read_table_field, which runs
//    the raising part under lua_pcall and turns a failure into a LuaArgError.
//  * LuaArgError travels as a C++ exception to the two entry points (get and set).
//    They catch it, let every C++ object go, close the platform log and only then
//    raise the Lua error, with exactly the message the Lua library would have given.
//  * No exception leaves an extern "C" function or a lua_CFunction.
//  * The one raise we accept inside handlers is Lua's own out-of-memory error from
//    lua_push*/lua_settable; release platform memory before building large result
//    tables where that is natural, so even that path leaks little.
#pragma once

#include <exception>
#include <lua.hpp>

namespace velconfig {

// A Lua error that a handler could not raise itself.
class LuaArgError : public std::exception {
 public:
  enum class Kind {
    kExpectedString,  // raise with luaL_argerror(L, -1, text)
    kRaised,          // raise text as the error value
  };
  LuaArgError(Kind kind, const char* text);
  const char* what() const noexcept override { return text_; }
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
  char text_[512];
};

// What an entry point keeps of a failed handler after the catch has ended.
struct PendingError {
  bool pending = false;
  LuaArgError::Kind kind = LuaArgError::Kind::kRaised;
  char text[512] = {};

  void capture(const LuaArgError& e);
  void capture(LuaArgError::Kind kind, const char* text);
};

// Raises the pending error. Does not return.
[[noreturn]] void raise_pending(lua_State* L, const PendingError& error);

}  // namespace velconfig
