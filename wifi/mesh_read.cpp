// "easymesh_config" (read): the EasyMesh settings through the exported reader, the
// interconnect plugin's status, and the roaming thresholds converted to RSSI.
#include <string.h>

#include "common/interconnect_status.h"
#include "common/result.h"
#include "platform/holders.h"
#include "platform/plugin.h"
#include "platform/text.h"
#include "platform/zovel.h"
#include "wifi/easymesh_config.h"
#include "wifi/mesh.h"

namespace velconfig {
namespace {

// What the read shows when the plugin does not report a threshold (RSSI -65 and -60).
constexpr int32_t kDefaultRcpi2g = 90;
constexpr int32_t kDefaultRcpi5g = 100;

constexpr const char* kGetMeshRoaming = R"({"CmdType":"GetMeshRoaming","SequenceId":"88888888"})";

// The plugin works in RCPI (half-decibel steps above -110 dBm), the page in RSSI.
int32_t rcpi_to_rssi(int32_t rcpi) { return rcpi / 2 - 110; }

// The plugin's thresholds into rcpi_2g and rcpi_5g; each keeps its value when the
// plugin does not report it as an integer.
void read_roaming_thresholds(int32_t* rcpi_2g, int32_t* rcpi_5g) {
  PluginExchange exchange;
  if (!exchange.post(kInterconnectApp, kGetMeshRoaming, "GetMeshRoaming: %s")) return;
  json_t* infos = exchange.document() != nullptr ? json_object_get(exchange.document(), "infos") : nullptr;
  if (json_is_object(infos)) {
    read_json_int(infos, "optimal_path_rcpi_threshold2g", rcpi_2g);
    read_json_int(infos, "optimal_path_rcpi_threshold", rcpi_5g);
  }
}

}  // namespace

void get_easymesh_config(lua_State* L, const GetArgs&) {
  int32_t rcpi_2g = kDefaultRcpi2g;
  int32_t rcpi_5g = kDefaultRcpi5g;
  lua_newtable(L);
  ZoVelEasymeshConfig config = {};
  // A failed read leaves the cleared record: mesh off and empty texts.
  ZoVelGetEasymeshConfigInfo(&config);
  set_bool(L, "enblMesh", config.enable != 0);
  set_bool(L, "enbl1", config.enable_2g != 0);
  set_text(L, "ssid1", field_text(config.ssid_2g));
  set_text(L, "key1", field_text(config.key_2g));
  set_text(L, "auth1", field_text(config.auth_2g));
  set_bool(L, "enbl2", config.enable_5g != 0);
  set_text(L, "ssid2", field_text(config.ssid_5g));
  set_text(L, "key2", field_text(config.key_5g));
  set_text(L, "auth2", field_text(config.auth_5g));
  getVelInterConndPluginStatus(L, 0);
  read_roaming_thresholds(&rcpi_2g, &rcpi_5g);
  set_number(L, "rssi1", rcpi_to_rssi(rcpi_2g));
  set_number(L, "rssi2", rcpi_to_rssi(rcpi_5g));
}

}  // namespace velconfig
