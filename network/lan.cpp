// "lan": the gateway's LAN address and its DHCP server, read from the DHCP server
// record and written in one multi-property call on the DHCP server object.
#include <string.h>

#include "common/result.h"
#include "common/table_field.h"
#include "network/network.h"
#include "platform/dbus.h"
#include "platform/text.h"
#include "platform/zovel.h"

namespace velconfig {
namespace {

const DBusObject kDhcpServer = {kIgdService, "/com/zom/igd1/Config/DHCPServer", "com.zom.igd1.DHCPServer"};

}  // namespace

void get_lan(lua_State* L, const GetArgs&) {
  lua_newtable(L);
  ZoVelDhcpServer server = {};
  ZoVelGetDHCPServer(&server);
  std::string_view lan_ip = field_text(server.lan_ip);
  set_number(L, "dhcpEnbl", server.enable);
  set_text(L, "lanIp", lan_ip.empty() ? "0.0.0.0" : lan_ip);
  set_text(L, "poolStart", field_text(server.pool_start));
  set_text(L, "poolEnd", field_text(server.pool_end));
  set_text(L, "subnetMask", field_text(server.subnet_mask));
}

// 0: written, address unchanged; 2: written, the page must move to the new address;
// 1: no table, or a field that is not a clean text; otherwise the platform's code.
int32_t set_lan(lua_State* L) {
  if (!lua_istable(L, -1)) return 1;
  char dhcp_enbl[8];
  char old_lan_ip[24];
  char lan_ip[16];
  char pool_start[16] = {};
  char pool_end[16] = {};
  char subnet_mask[16] = {};
  if (!read_field(L, "dhcpEnbl", dhcp_enbl) || !read_field(L, "oldLanIp", old_lan_ip) ||
      !read_field(L, "lanIp", lan_ip)) {
    return kTextRefused;
  }
  // The pool is neither read nor sent while the server is off.
  bool enable = decimal_value(dhcp_enbl) == 1;
  if (enable && (!read_field(L, "poolStart", pool_start) || !read_field(L, "poolEnd", pool_end) ||
                 !read_field(L, "subnetMask", subnet_mask))) {
    return kTextRefused;
  }
  // Compared as it is sent (cut at its capacity), so that 2 never tells the page of
  // an address not taken.
  bool moved = strcmp(old_lan_ip, lan_ip) != 0;

  // The texts are UTF-8, as D-Bus strings must be: the field reader refuses any other,
  // and its cut at a field's capacity never splits a character.
  PropertyWrite write;
  if (enable) {
    write.add_text("MinAddress", pool_start);
    write.add_text("MaxAddress", pool_end);
    write.add_text("SubnetMask", subnet_mask);
  }
  write.add_bool("Enable", enable);
  write.add_text("IPAddr", lan_ip);
  int32_t code = write.send(kDhcpServer);
  if (code != 0) return code;
  return moved ? 2 : 0;
}

}  // namespace velconfig
