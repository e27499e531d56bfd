// One Lua state with the module over the simulated gateway, for the targets that
// reach a parser through the key that feeds it.
#pragma once

#include <stdlib.h>

#include <lua.hpp>
#include <string>

#include "sim/cloud.h"
#include "sim/sim.h"

extern "C" int luaopen_velconfig(lua_State* L);

namespace velfuzz {

// A new scratch folder under $TMPDIR as the simulator's file root, for a gateway in
// memory (never the user's default one, which every input would otherwise rewrite).
inline void scratch_file_root() {
  velsim::use_state_file("", nullptr);
  const char* tmp = getenv("TMPDIR");
  std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/velconfig-fuzz-XXXXXX";
  char* root = pattern.data();
  if (mkdtemp(root) == nullptr) abort();
  velsim::set_file_root(root);
}

inline lua_State* module_state() {
  static lua_State* L = nullptr;
  if (L != nullptr) return L;
  scratch_file_root();
  velsim::pin_clock(1700000000);
  // A silent peer must not hold an input for the full 20 seconds.
  velsim::set_app_market_timeout(100);
  L = luaL_newstate();
  luaL_openlibs(L);
  luaopen_velconfig(L);
  lua_setglobal(L, "velconfig_module");
  return L;
}

// The default gateway again, with an empty journal and log.
inline void fresh_model() {
  std::string reason;
  velsim::load_model_text(velsim::default_model_text(), &reason);
  velsim::clear_journal();
  velsim::clear_logs();
}

// velconfig:get(key, a1, a2) or velconfig:set(key, a1) under a protected call; a null
// argument is left out.
inline void call(bool is_get, const char* key, const std::string* a1, const std::string* a2 = nullptr) {
  lua_State* L = module_state();
  lua_getglobal(L, "velconfig_module");
  lua_getfield(L, -1, is_get ? "get" : "set");
  lua_insert(L, -2);
  lua_pushstring(L, key);
  int n = 2;
  if (a1 != nullptr) {
    lua_pushlstring(L, a1->data(), a1->size());
    ++n;
    if (a2 != nullptr) {
      lua_pushlstring(L, a2->data(), a2->size());
      ++n;
    }
  }
  lua_pcall(L, n, LUA_MULTRET, 0);
  lua_settop(L, 0);
}

}  // namespace velfuzz
