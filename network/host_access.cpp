// Per-host Internet access: black-listing, restricting and releasing a LAN host
// found by its MAC address, and the list of black-listed hosts.
#include <glib.h>
#include <string.h>

#include "common/host_fields.h"
#include "common/result.h"
#include "common/table_field.h"
#include "network/network.h"
#include "platform/dbus.h"
#include "platform/holders.h"
#include "platform/object_path.h"
#include "platform/text.h"
#include "platform/zovel.h"

namespace velconfig {
namespace {

// Values of the "InternetAccess" byte.
constexpr uint8_t kBlackListed = 0;
constexpr uint8_t kRestricted = 1;
constexpr uint8_t kNormal = 2;

int32_t write_access(const ZoVelLanHost& host) {
  return ZoVelDBusSetProperty(kIgdService, path_text(host.path).text, "com.zom.igd1.LANHost",
                              "InternetAccess", g_variant_new_byte(host.internet_access));
}

}  // namespace

// 1 when no host has the MAC or a field is not a clean text, else the property
// write's result.
int32_t set_host_settings(lua_State* L) {
  char type[16] = {};
  char mac[24] = {};
  // Refused before the log line: a text that is not clean names no host.
  char on_off[8] = {};
  bool black = false;
  if (lua_istable(L, -1)) {
    if (!read_field(L, "type", type) || !read_field(L, "mac", mac)) return kTextRefused;
    black = strcmp(type, "black") == 0;
    // Judged before the host is looked up, as every field of a write is.
    if (!black && !read_field(L, "onOff", on_off)) return kTextRefused;
  }
  ZoVelLog(kLogNotice, "Set LAN host [%s] to black or restrict", mac);
  ZoVelLanHost host = {};
  if (ZoVelGetLANHostByMAC(mac, &host) != 0) return 1;
  if (black) {
    host.internet_access = kBlackListed;
  } else {
    host.internet_access = decimal_value(on_off) != 0 ? kRestricted : kNormal;
  }
  return write_access(host);
}

// Gives the host normal access whatever it had; 1 when no host has the MAC or it is
// not a clean text.
int32_t set_rm_black_host(lua_State* L) {
  char mac[24] = {};
  if (lua_istable(L, -1) && !read_field(L, "mac", mac)) return kTextRefused;
  ZoVelLog(kLogNotice, "Remove LAN host [%s] out of black lists.", mac);
  ZoVelLanHost host = {};
  if (ZoVelGetLANHostByMAC(mac, &host) != 0) return 1;
  host.internet_access = kNormal;
  return write_access(host);
}

void get_black_hosts(lua_State* L, const GetArgs&) {
  lua_newtable(L);
  PlatformList<ZoVelLanHostExt> list;
  // A failed listing reads as an empty one.
  list.fill(ZoVelGetLANHostExtWithIPv6Objs);
  int rows = 0;
  for (const ZoVelLanHostExt& host : list) {
    if (host.base.internet_access != kBlackListed) continue;
    begin_row(L, "dev%d", ++rows);
    set_host_fields(L, host);
    end_row(L);
  }
  set_number(L, "count", rows);
}

}  // namespace velconfig
