// "iptv": the IPTV service record, changed field by field and written back whole.
#include <string.h>

#include "common/result.h"
#include "common/table_field.h"
#include "network/network.h"
#include "platform/text.h"
#include "platform/zovel.h"

namespace velconfig {

void get_iptv(lua_State* L, const GetArgs&) {
  lua_newtable(L);
  ZoVelIptvInfo iptv = {};
  ZoVelGetSubIPTVInfo(&iptv);
  std::string_view ports = field_text(iptv.bound_ports);
  set_number(L, "enable", iptv.enable);
  set_number(L, "vlanOnOff", iptv.vlan_id >= 0 ? 1 : 0);
  set_number(L, "vlanid", iptv.vlan_id);
  set_text(L, "bindlanport", ports.empty() ? "none" : ports);
}

// 0 on success (also when the input is not a table: nothing is written); 1 when a
// field is not a clean text (nothing is written); otherwise the platform's code from
// reading or writing the record. The fields are judged before the record is read.
int32_t set_iptv(lua_State* L) {
  bool table = lua_istable(L, -1);
  char enable[32] = {};
  char vlan_on_off[32] = {};
  char vlan_id[32] = {};
  char ports[32] = {};
  if (table) {
    if (!read_field(L, "enable", enable)) return kTextRefused;
    // Switched off, only the flag changes; VLAN and ports go back as the platform gave them.
    if (decimal_value(enable) != 0) {
      if (!read_field(L, "vlanOnOff", vlan_on_off)) return kTextRefused;
      if (decimal_value(vlan_on_off) != 0 && !read_field(L, "vlanid", vlan_id)) return kTextRefused;
      if (!read_field(L, "bindlanport", ports)) return kTextRefused;
    }
  }
  ZoVelIptvInfo iptv = {};
  int32_t code = ZoVelGetSubIPTVInfo(&iptv);
  if (code != 0) return code;
  if (!table) return 0;

  iptv.enable = decimal_value(enable) != 0 ? 1 : 0;
  if (iptv.enable != 0) {
    if (decimal_value(vlan_on_off) != 0) iptv.vlan_id = decimal_value(vlan_id);
    memset(iptv.bound_ports, 0, sizeof iptv.bound_ports);
    if (strcmp(ports, "none") != 0) copy_text(iptv.bound_ports, ports);
  }
  return ZoVelSetSubIPTVInfo(&iptv);
}

}  // namespace velconfig
