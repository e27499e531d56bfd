// Simulated LAN hosts: the online device lists, the snapshot, lookup by MAC and the
// "InternetAccess" property. Byte counters and online time advance with the clock
// at each host's download and upload rate (bits per second).
#include <stdio.h>
#include <string.h>

#include <vector>

#include "platform/zovel.h"
#include "sim/dbus.h"
#include "sim/hosts.h"
#include "sim/sim.h"

using velsim::array_at;
using velsim::flag_of;
using velsim::int_of;
using velsim::operation;
using velsim::put_text;
using velsim::text_of;

namespace velsim {
namespace {

uint64_t advanced(json_t* host, const char* counter, const char* rate, int64_t seconds) {
  uint64_t value = static_cast<uint64_t>(int_of(host, counter));
  uint64_t bits = static_cast<uint64_t>(int_of(host, rate));
  return value + bits * static_cast<uint64_t>(seconds) / 8;
}

std::vector<json_t*> all_hosts() {
  std::vector<json_t*> hosts;
  size_t i;
  json_t* host;
  json_array_foreach(array_at("hosts"), i, host) {
    if (json_is_object(host)) hosts.push_back(host);
  }
  return hosts;
}

template <class Record, class Fill>
int32_t list_hosts(Record** out, int32_t* count, bool (*keep)(json_t*), Fill fill) {
  if (out == nullptr || count == nullptr) return -1;
  std::vector<json_t*> hosts;
  for (json_t* h : all_hosts()) {
    if (keep == nullptr || keep(h)) hosts.push_back(h);
  }
  Record* records = new_records<Record>(hosts.size());
  for (size_t i = 0; i < hosts.size(); ++i) fill(hosts[i], &records[i]);
  *out = records;
  *count = static_cast<int32_t>(hosts.size());
  return 0;
}

GVariant* get_access(const char* path) {
  json_t* host = host_at_path(path);
  return host != nullptr ? g_variant_new_byte(static_cast<uint8_t>(int_of(host, "access"))) : nullptr;
}

int32_t set_access(const char* path, GVariant* value) {
  json_t* host = host_at_path(path);
  if (host == nullptr) return kNoSuchObject;
  if (!g_variant_is_of_type(value, G_VARIANT_TYPE_BYTE)) return kWrongType;
  json_object_set_new(host, "access", json_integer(g_variant_get_byte(value)));
  return 0;
}

const PropertyTable kHostProperties{
    {"com.zom.igd1", kLanHostPathPrefix, "com.zom.igd1.LANHost", "InternetAccess", get_access, set_access},
};

}  // namespace

json_t* host_at_path(const char* path) {
  size_t n = strlen(kLanHostPathPrefix);
  if (path == nullptr || strncmp(path, kLanHostPathPrefix, n) != 0) return nullptr;
  for (json_t* h : all_hosts()) {
    char own[64];
    snprintf(own, sizeof own, "%s%lld", kLanHostPathPrefix, static_cast<long long>(int_of(h, "id")));
    if (strcmp(own, path) == 0) return h;
  }
  return nullptr;
}

void fill_lan_host(json_t* host, ZoVelLanHost* r) {
  bool online = flag_of(host, "online");
  int64_t seconds = online ? elapsed() : 0;
  snprintf(r->path, sizeof r->path, "%s%lld", kLanHostPathPrefix, static_cast<long long>(int_of(host, "id")));
  put_text(r->mac, text_of(host, "mac"));
  put_text(r->name, text_of(host, "name"));
  r->internet_access = static_cast<uint8_t>(int_of(host, "access", 2));
  put_text(r->dev_type, text_of(host, "type"));
  put_text(r->ipv4, text_of(host, "ip"));
  r->connection_type = static_cast<uint8_t>(int_of(host, "connection"));
  put_text(r->brand, text_of(host, "brand"));
  put_text(r->model, text_of(host, "model"));
  put_text(r->system, text_of(host, "system"));
  r->online = online ? 1 : 0;
  r->online_time = static_cast<uint32_t>(int_of(host, "online_time") + seconds);
  r->down_bytes = advanced(host, "down_bytes", "down_rate", seconds);
  r->up_bytes = advanced(host, "up_bytes", "up_rate", seconds);
}

void fill_lan_host_ext(json_t* host, ZoVelLanHostExt* r) {
  fill_lan_host(host, &r->base);
  put_text(r->ipv6, text_of(host, "ipv6"));
}

}  // namespace velsim

extern "C" int32_t ZoVelGetOnlineDeviceList(ZoVelLanHost** hosts, int32_t* count, void*, void*) {
  return operation("ZoVelGetOnlineDeviceList", nullptr,
                   [&] { return velsim::list_hosts(hosts, count, nullptr, velsim::fill_lan_host); });
}

extern "C" int32_t ZoVelGetOnlineDeviceListExtWithIPv6(ZoVelLanHostExt** hosts, int32_t* count, void*,
                                                       void*) {
  return operation("ZoVelGetOnlineDeviceListExtWithIPv6", nullptr,
                   [&] { return velsim::list_hosts(hosts, count, nullptr, velsim::fill_lan_host_ext); });
}

extern "C" int32_t ZoVelGetLANHostExtWithIPv6Objs(ZoVelLanHostExt** hosts, int32_t* count) {
  return operation("ZoVelGetLANHostExtWithIPv6Objs", nullptr,
                   [&] { return velsim::list_hosts(hosts, count, nullptr, velsim::fill_lan_host_ext); });
}

extern "C" int32_t ZoVelGetOnlineDevicesSnapShot(ZoVelDeviceSnapshot** devices, int32_t* count, void*,
                                                 void*) {
  return operation("ZoVelGetOnlineDevicesSnapShot", nullptr, [&] {
    return velsim::list_hosts(
        devices, count, [](json_t* h) { return flag_of(h, "online"); },
        [](json_t* h, ZoVelDeviceSnapshot* r) {
          r->connection_type = static_cast<uint8_t>(int_of(h, "connection"));
        });
  });
}

extern "C" int32_t ZoVelGetLANHostByMAC(const char* mac, ZoVelLanHost* host) {
  return operation("ZoVelGetLANHostByMAC", json_pack("{s:s?}", "mac", mac), [&]() -> int32_t {
    if (mac == nullptr || host == nullptr) return -1;
    for (json_t* h : velsim::all_hosts()) {
      if (g_ascii_strcasecmp(text_of(h, "mac"), mac) == 0) {
        velsim::fill_lan_host(h, host);
        return 0;
      }
    }
    return -1;
  });
}
