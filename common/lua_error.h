// The argument error a handler reports by exception; module/lua_boundary.h says how
// it reaches Lua.
#pragma once

#include <stdio.h>

#include <exception>

namespace velconfig {

// luaL_checklstring's complaint about a table field that is not text, to be raised
// with luaL_argerror from the entry point's own frame.
class LuaArgError : public std::exception {
 public:
  explicit LuaArgError(const char* text) { snprintf(text_, sizeof text_, "%s", text); }
  const char* what() const noexcept override { return text_; }

 private:
  char text_[128];
};

}  // namespace velconfig
