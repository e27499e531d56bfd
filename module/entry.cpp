// Module entry: the open function, registration, and the two entry points' frame
// (validation, platform log, error boundary). See module/lua_boundary.h.
#include <stdio.h>
#include <string.h>

#include "module/dispatch.h"
#include "module/lua_boundary.h"
#include "platform/zovel.h"

namespace velconfig {

LuaArgError::LuaArgError(Kind kind, const char* text) : kind_(kind) {
  snprintf(text_, sizeof text_, "%s", text);
}

void PendingError::capture(LuaArgError::Kind k, const char* message) {
  pending = true;
  kind = k;
  snprintf(text, sizeof text, "%s", message);
}

void PendingError::capture(const LuaArgError& e) { capture(e.kind(), e.what()); }

void raise_pending(lua_State* L, const PendingError& error) {
  if (error.kind == LuaArgError::Kind::kExpectedString) luaL_argerror(L, -1, error.text);
  lua_pushstring(L, error.text);
  lua_error(L);
  __builtin_unreachable();
}

namespace {

constexpr int32_t kSyslogUser = 8;

template <class Body>
void run_guarded(PendingError* error, Body body) noexcept {
  try {
    body();
  } catch (const LuaArgError& e) {
    error->capture(e);
  } catch (const std::exception& e) {
    error->capture(LuaArgError::Kind::kRaised, e.what());
  } catch (...) {
    error->capture(LuaArgError::Kind::kRaised, "velconfig: unexpected failure");
  }
}

// Plain functions for the registration list; the frame itself holds no C++ object
// with a destructor, so the raises below are safe.
int lua_get(lua_State* L) { return get_entry(L); }
int lua_set(lua_State* L) { return set_entry(L); }

const luaL_Reg kModuleFunctions[] = {
    {"get", lua_get},
    {"set", lua_set},
    {nullptr, nullptr},
};

// Puts every module function into the table on top of the stack.
void register_functions(lua_State* L) {
  luaL_checkstack(L, 1, "too many upvalues");
  for (const luaL_Reg* f = kModuleFunctions; f->name != nullptr; ++f) {
    lua_pushstring(L, f->name);
    lua_pushcclosure(L, f->func, 0);
    lua_settable(L, -3);
  }
  lua_pop(L, 0);
}

}  // namespace

int get_entry(lua_State* L) {
  int n = lua_gettop(L);
  if (n <= 1) return luaL_error(L, "Arguments unknown");
  if (n > 4) return luaL_error(L, "Arguments more than three");
  GetArgs args{nullptr, nullptr};
  if (n == 4) {
    if (!lua_isstring(L, 4)) return luaL_error(L, "The third argument is invalid");
    args.a2 = lua_tostring(L, 4);
  }
  if (n >= 3) {
    if (!lua_isstring(L, 3)) return luaL_error(L, "The second argument is invalid");
    args.a1 = lua_tostring(L, 3);
  }
  if (!lua_isstring(L, 2)) return luaL_error(L, "The first argument is invalid");
  const char* key = lua_tostring(L, 2);

  ZoVelLogOpen(kSyslogUser, "velconfig");
  PendingError error;
  GetHandler handler = find_get_handler(key);
  if (handler != nullptr) {
    run_guarded(&error, [&] { handler(L, args); });
  } else {
    lua_pushnil(L);
  }
  ZoVelLogClose();
  if (error.pending) raise_pending(L, error);
  return 1;
}

int set_entry(lua_State* L) {
  if (lua_gettop(L) <= 1) return luaL_error(L, "Arguments unknown");
  // A key that is neither text nor number is treated as an unknown key.
  const char* key = lua_isstring(L, 2) ? lua_tostring(L, 2) : nullptr;

  ZoVelLogOpen(kSyslogUser, "velconfig");
  PendingError error;
  int32_t code = 1;
  SetHandler handler = key != nullptr ? find_set_handler(key) : nullptr;
  if (handler != nullptr) run_guarded(&error, [&] { code = handler(L); });
  ZoVelLogClose();
  if (error.pending) raise_pending(L, error);
  lua_pushnumber(L, code);
  return 1;
}

}  // namespace velconfig

extern "C" __attribute__((visibility("default"))) int luaopen_velconfig(lua_State* L) {
  luaL_newmetatable(L, "velconfig.meta");
  lua_pushvalue(L, -1);
  lua_setfield(L, -2, "__index");
  velconfig::register_functions(L);
  lua_pop(L, 1);

  lua_newtable(L);
  lua_pushvalue(L, -1);
  velconfig::register_functions(L);
  lua_setfield(L, LUA_GLOBALSINDEX, "velconfig");
  return 1;
}
