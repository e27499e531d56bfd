// get and set through a Lua state, with fuzzed keys and arguments of every Lua type,
// against a simulated gateway whose model the input also reshapes.
#include <jansson.h>
#include <stdlib.h>
#include <unistd.h>

#include <lua.hpp>
#include <string>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "fuzz/lua_harness.h"
#include "module/dispatch.h"
#include "sim/sim.h"

namespace {

lua_State* L = nullptr;
std::vector<std::string> get_names;
std::vector<std::string> set_names;
// Field names the write keys read, so tables reach past their first check.
const char* const kFieldNames[] = {"op",
                                   "desp",
                                   "client",
                                   "protocol",
                                   "exPort",
                                   "inPort",
                                   "mac",
                                   "type",
                                   "onOff",
                                   "add",
                                   "enable",
                                   "lanIp",
                                   "oldLanIp",
                                   "dhcpEnbl",
                                   "poolStart",
                                   "poolEnd",
                                   "subnetMask",
                                   "vlanid",
                                   "vlanOnOff",
                                   "bindlanport",
                                   "hostname",
                                   "domain",
                                   "wifi_dualBand",
                                   "wifi_2G_enbl",
                                   "wifi_2G_ssid",
                                   "wifi_2G_auth",
                                   "wifi_2G_passwd",
                                   "wifi_2G_strength",
                                   "wifi_timing",
                                   "start_time",
                                   "end_time",
                                   "syncConfig",
                                   "syncOnoff",
                                   "modeflg",
                                   "ssid2g",
                                   "pwd2g",
                                   "enbl2g",
                                   "instno",
                                   "newLabel",
                                   "loid",
                                   "password",
                                   "config"};

void setup() {
  // The harness also keeps a reshaped model's silent "LocalPort" from holding an input.
  L = velfuzz::module_state();
  auto [gets, get_count] = velconfig::get_keys();
  for (size_t i = 0; i < get_count; ++i) get_names.emplace_back(gets[i].key);
  auto [sets, set_count] = velconfig::set_keys();
  for (size_t i = 0; i < set_count; ++i) set_names.emplace_back(sets[i].key);
}

json_t* fuzzed_value(velfuzz::Input& in) {
  switch (in.below(6)) {
    case 0:
      return json_integer(in.i64());
    case 1:
      return json_stringn(in.text().data(), in.text().size());
    case 2:
      return json_boolean(in.byte() & 1);
    case 3:
      return json_null();
    case 4:
      return json_real(static_cast<double>(in.i64()) / 7.0);
    default:
      return json_array();
  }
}

// Every node of the model, in document order.
void collect(json_t* node, std::vector<std::pair<json_t*, std::string>>* out, json_t* parent,
             const char* key) {
  if (parent != nullptr) out->emplace_back(parent, key);
  if (json_is_object(node)) {
    const char* k;
    json_t* v;
    json_object_foreach(node, k, v) { collect(v, out, node, k); }
  } else if (json_is_array(node)) {
    for (size_t i = 0; i < json_array_size(node); ++i)
      collect(json_array_get(node, i), out, node, std::to_string(i).c_str());
  }
}

void reshape_model(velfuzz::Input& in) {
  json_t* model = json_loads(velsim::default_model_text(), 0, nullptr);
  size_t changes = in.below(4);
  for (size_t c = 0; c < changes; ++c) {
    std::vector<std::pair<json_t*, std::string>> nodes;
    collect(model, &nodes, nullptr, nullptr);
    if (nodes.empty()) break;
    auto& [parent, key] = nodes[in.below(nodes.size())];
    if (json_is_object(parent)) {
      json_object_set_new(parent, key.c_str(), fuzzed_value(in));
    } else {
      json_array_set_new(parent, static_cast<size_t>(strtoul(key.c_str(), nullptr, 10)), fuzzed_value(in));
    }
  }
  char* text = json_dumps(model, 0);
  std::string reason;
  velsim::load_model_text(text, &reason);
  free(text);
  json_decref(model);
}

void push_text(velfuzz::Input& in) {
  std::string t = in.text();
  lua_pushlstring(L, t.data(), t.size());
}

void push_value(velfuzz::Input& in, int depth) {
  switch (in.below(7)) {
    case 0:
      lua_pushnil(L);
      break;
    case 1:
      lua_pushnumber(L, static_cast<lua_Number>(static_cast<int32_t>(in.u32())));
      break;
    case 2:
    case 3:
      push_text(in);
      break;
    case 4:
      lua_pushboolean(L, in.byte() & 1);
      break;
    case 5:
      lua_pushlightuserdata(L, nullptr);
      break;
    default: {
      lua_newtable(L);
      size_t fields = in.below(6);
      for (size_t i = 0; i < fields; ++i) {
        if (in.byte() & 1) {
          lua_pushstring(L, kFieldNames[in.below(sizeof kFieldNames / sizeof kFieldNames[0])]);
        } else {
          push_text(in);
        }
        if (depth < 2) {
          push_value(in, depth + 1);
        } else {
          push_text(in);
        }
        if (lua_isnil(L, -2)) {
          lua_pop(L, 2);
        } else {
          lua_settable(L, -3);
        }
      }
    }
  }
}

void one_call(velfuzz::Input& in) {
  bool is_get = in.byte() & 1;
  lua_getglobal(L, "velconfig_module");
  lua_getfield(L, -1, is_get ? "get" : "set");
  lua_insert(L, -2);  // function, module table
  const std::vector<std::string>& names = is_get ? get_names : set_names;
  if (in.below(8) != 0) {
    const std::string& key = names[in.below(names.size())];
    lua_pushlstring(L, key.data(), key.size());
  } else {
    push_value(in, 0);
  }
  int args = static_cast<int>(in.below(4));
  for (int i = 0; i < args; ++i) push_value(in, 0);
  lua_pcall(L, 2 + args, LUA_MULTRET, 0);
  lua_settop(L, 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (L == nullptr) setup();
  velfuzz::Input in(data, size);
  velsim::pin_clock(1700000000 + static_cast<int64_t>(in.below(100000)));
  reshape_model(in);
  velsim::clear_journal();
  velsim::clear_logs();
  for (int calls = 0; calls < 8 && !in.empty(); ++calls) one_call(in);
  lua_gc(L, LUA_GCCOLLECT, 0);
  return 0;
}
