// Module entry: the open function, registration, and the frame of the two entry
// points: validation, the platform log, and the protected handler call. See
// module/lua_boundary.h.
#include <stdio.h>
#include <string.h>

#include "module/dispatch.h"
#include "module/lua_boundary.h"
#include "platform/holders.h"
#include "platform/zovel.h"

namespace velconfig {

void PendingError::capture(Kind k, const char* message) {
  kind = k;
  snprintf(text, sizeof text, "%s", message);
}

namespace {

constexpr int32_t kSyslogUser = 8;

// One get or set call as the protected part sees it; trivially destructible.
struct Call {
  GetHandler get;
  SetHandler set;
  GetArgs args;
  int32_t code;
  PendingError error;
};

template <class Body>
void run_guarded(PendingError* error, Body body) {
  try {
    body();
  } catch (const LuaArgError& e) {
    error->capture(PendingError::Kind::kArgument, e.what());
  } catch (const std::exception& e) {
    error->capture(PendingError::Kind::kOther, e.what());
  }
  // Nothing else is caught: our code throws only standard exceptions, and under
  // LuaJIT a Lua error unwinds as a foreign exception that must pass on to lua_pcall.
}

// The call reaches its protected part as the address held in a full userdata: a
// light userdata of a stack address is refused by LuaJIT 2.1 releases before the
// 47-bit fix on 64-bit ARM, whose kernels put stacks above 2^47.
// Pushes the userdata; can raise a Lua memory error (nothing to release yet).
struct CallRef {
  Call* call;
};

void push_call(lua_State* L, Call* call) {
  static_cast<CallRef*>(lua_newuserdata(L, sizeof(CallRef)))->call = call;
}

Call* call_at(lua_State* L, int index) { return static_cast<CallRef*>(lua_touserdata(L, index))->call; }

// Protected part of get: index 1 is the call; the handler pushes one value.
int protected_get(lua_State* L) {
  Call* call = call_at(L, 1);
  run_guarded(&call->error, [&] { call->get(L, call->args); });
  return 1;
}

// Protected part of set: index 1 is the call, the top is the input (or the key).
int protected_set(lua_State* L) {
  Call* call = call_at(L, 1);
  run_guarded(&call->error, [&] { call->code = call->set(L); });
  return 0;
}

// Runs the protected part with nargs values above it, then ends the call: platform
// memory released, log closed, and a failure raised. Leaves nresults values.
void finish_call(lua_State* L, int nargs, int nresults, const Call& call) {
  size_t mark = call_scope::mark();
  int status = lua_pcall(L, nargs, nresults, 0);
  call_scope::release_to(mark);
  ZoVelLogClose();
  if (status != 0) lua_error(L);
  if (call.error.kind == PendingError::Kind::kArgument) luaL_argerror(L, -1, call.error.text);
  if (call.error.kind == PendingError::Kind::kOther) luaL_error(L, "%s", call.error.text);
}

// The key at index 2 (text or number) with its whole length, NUL bytes included.
std::string_view key_text(lua_State* L) {
  size_t length = 0;
  const char* key = lua_tolstring(L, 2, &length);
  return std::string_view(key, length);
}

// The text argument at index, or null (as if absent) when it holds a NUL byte: the
// handlers take texts as C strings and would act on the part before it, a path
// "/mnt/usb1_1/ren.txt\0/../../x" as ren.txt.
const char* whole_text(lua_State* L, int index) {
  size_t length = 0;
  const char* text = lua_tolstring(L, index, &length);
  return memchr(text, '\0', length) == nullptr ? text : nullptr;
}

// Plain functions for the registration list.
int lua_get(lua_State* L) { return get_entry(L); }
int lua_set(lua_State* L) { return set_entry(L); }

const luaL_Reg kModuleFunctions[] = {
    {"get", lua_get},
    {"set", lua_set},
    {nullptr, nullptr},
};

// Puts every module function into the table on top of the stack.
void register_functions(lua_State* L) {
  if (!lua_checkstack(L, 1)) luaL_error(L, "too many upvalues");
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
  Call call{};
  if (n == 4) {
    if (!lua_isstring(L, 4)) return luaL_error(L, "The third argument is invalid");
    call.args.a2 = whole_text(L, 4);
  }
  if (n >= 3) {
    if (!lua_isstring(L, 3)) return luaL_error(L, "The second argument is invalid");
    call.args.a1 = whole_text(L, 3);
  }
  if (!lua_isstring(L, 2)) return luaL_error(L, "The first argument is invalid");
  call.get = find_get_handler(key_text(L));

  lua_pushcfunction(L, protected_get);
  push_call(L, &call);
  ZoVelLogOpen(kSyslogUser, "velconfig");
  if (call.get == nullptr) {
    // An unknown key, or one whose page is not built yet: nil.
    lua_pop(L, 2);
    ZoVelLogClose();
    lua_pushnil(L);
    return 1;
  }
  finish_call(L, 1, 1, call);
  return 1;
}

int set_entry(lua_State* L) {
  int n = lua_gettop(L);
  if (n <= 1) return luaL_error(L, "Arguments unknown");
  Call call{};
  // A key that is neither text nor number is treated as an unknown key.
  call.set = lua_isstring(L, 2) ? find_set_handler(key_text(L)) : nullptr;

  lua_pushcfunction(L, protected_set);
  push_call(L, &call);
  lua_pushvalue(L, n);  // the input the handler reads from the top; the key when none
  ZoVelLogOpen(kSyslogUser, "velconfig");
  if (call.set == nullptr) {
    lua_pop(L, 3);
    ZoVelLogClose();
    lua_pushnumber(L, 1);
    return 1;
  }
  call.code = 1;
  finish_call(L, 2, 0, call);
  lua_pushnumber(L, call.code);
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
