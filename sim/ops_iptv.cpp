// Simulated IPTV settings: one record, read and written whole.
#include <stdlib.h>
#include <string.h>

#include "platform/zovel.h"
#include "sim/dbus.h"
#include "sim/sim.h"

using velsim::int_of;
using velsim::object_at;
using velsim::operation;

namespace {

const std::initializer_list<velsim::ByteRange> kIptvReserved{VELSIM_RANGE(ZoVelIptvInfo, reserved0),
                                                             VELSIM_RANGE(ZoVelIptvInfo, reserved1)};

json_t* iptv_args(const ZoVelIptvInfo* r) {
  if (r == nullptr) return nullptr;
  json_t* args = json_pack("{s:i,s:i}", "enable", r->enable, "vlan_id", r->vlan_id);
  json_object_set_new(args, "bound_ports", velsim::shown_text(r->bound_ports, sizeof r->bound_ports));
  json_t* reserved = velsim::reserved_of(r, kIptvReserved);
  if (json_object_size(reserved) > 0) json_object_set(args, "reserved", reserved);
  json_decref(reserved);
  return args;
}

// The gateway's LAN ports are LAN1 ... LANn (device.lan_ports, 4 when absent).
constexpr json_int_t kDefaultLanPorts = 4;
constexpr int32_t kLargestVlan = 4094;

// Bound ports as a gateway keeps them: none, or LANn names the gateway has, separated by ",".
bool ports_valid(const char* ports) {
  if (ports[0] == '\0') return true;
  json_int_t count = int_of(object_at("device"), "lan_ports", kDefaultLanPorts);
  gchar** names = g_strsplit(ports, ",", -1);
  bool ok = true;
  for (gchar** n = names; ok && *n != nullptr; ++n) {
    const char* digits = g_str_has_prefix(*n, "LAN") ? *n + 3 : nullptr;
    char* end = nullptr;
    long port = digits != nullptr && g_ascii_isdigit(digits[0]) ? strtol(digits, &end, 10) : 0;
    ok = end != nullptr && *end == '\0' && port >= 1 && port <= count;
  }
  g_strfreev(names);
  return ok;
}

}  // namespace

extern "C" int32_t ZoVelGetSubIPTVInfo(ZoVelIptvInfo* iptv) {
  return operation("ZoVelGetSubIPTVInfo", nullptr, [&] {
    if (iptv == nullptr) return -1;
    json_t* m = object_at("iptv");
    velsim::put_reserved(m, iptv, kIptvReserved);
    iptv->enable = static_cast<int32_t>(int_of(m, "enable"));
    iptv->vlan_id = static_cast<int32_t>(int_of(m, "vlan_id", -1));
    velsim::put_text(iptv->bound_ports, velsim::text_of(m, "bound_ports"));
    velsim::hostile_record(iptv);
    return 0;
  });
}

extern "C" int32_t ZoVelSetSubIPTVInfo(ZoVelIptvInfo* iptv) {
  return operation("ZoVelSetSubIPTVInfo", iptv_args(iptv), [&] {
    if (iptv == nullptr) return -1;
    if (!velsim::storable(iptv->bound_ports)) return velsim::kWrongType;
    json_t* m = object_at("iptv");
    char ports[sizeof iptv->bound_ports + 1] = {};
    memcpy(ports, iptv->bound_ports, sizeof iptv->bound_ports);
    // A VLAN is none (negative) or 1-4094; ports are ones the gateway has.
    bool vlan_valid = iptv->vlan_id < 0 || (iptv->vlan_id >= 1 && iptv->vlan_id <= kLargestVlan);
    if (!vlan_valid || !ports_valid(ports)) return velsim::kWrongType;
    velsim::store(m, "enable", json_integer(iptv->enable));
    velsim::store(m, "vlan_id", json_integer(iptv->vlan_id), -1);
    velsim::store(m, "bound_ports", json_string(ports));
    velsim::store_reserved(m, velsim::reserved_of(iptv, kIptvReserved), kIptvReserved);
    velsim::model_changed();
    return 0;
  });
}
