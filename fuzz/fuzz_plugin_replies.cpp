// The interconnect plugin's replies as the status collection and the access-point
// write read them: the "Info" device list, GetWifi's nested members, the switches.
#include <jansson.h>

#include <string>

#include "fuzz/fuzz_input.h"
#include "fuzz/lua_harness.h"

namespace {

const char* const kCommands[] = {"GetDeviceList", "GetWifi", "GetSameWifi", "GetSameStatus", "SetWifiConfig"};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  velfuzz::module_state();
  velsim::clear_journal();
  velsim::clear_logs();
  velfuzz::Input in(data, size);
  json_t* replies = json_object();
  for (const char* command : kCommands) {
    uint8_t form = in.byte() % 4;
    std::string text = in.text(2048);
    if (form == 0) continue;  // answered from the model
    if (form == 1) {
      json_object_set_new(replies, command, json_null());  // no reply
    } else if (form == 2) {
      json_object_set_new(replies, command, json_stringn(text.data(), text.size()));  // raw text
    } else {
      // The text as the "Info" member of an otherwise well-formed reply.
      json_t* reply = json_pack("{s:s%,s:i}", "Info", text.data(), text.size(), "Status", 0);
      char* dumped = json_dumps(reply, 0);
      json_object_set_new(replies, command, json_string(dumped));
      free(dumped);
      json_decref(reply);
    }
  }
  json_object_set_new(velsim::object_at("interconnect"), "replies", replies);
  velfuzz::call(true, "interConndStatus", nullptr);
  lua_State* L = velfuzz::module_state();
  lua_getglobal(L, "velconfig_module");
  lua_getfield(L, -1, "set");
  lua_insert(L, -2);
  lua_pushstring(L, "configAP");
  lua_newtable(L);
  lua_pushstring(L, "3");
  lua_setfield(L, -2, "modeflg");
  std::string mac = in.text(32);
  lua_pushlstring(L, mac.data(), mac.size());
  lua_setfield(L, -2, "mac");
  lua_pcall(L, 3, LUA_MULTRET, 0);
  lua_settop(L, 0);
  return 0;
}
