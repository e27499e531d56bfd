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

std::vector<json_t*> all_hosts() { return objects_in("hosts"); }

template <class Record, class Fill>
int32_t list_hosts(Record** out, int32_t* count, bool (*keep)(json_t*), Fill fill) {
  std::vector<json_t*> hosts;
  for (json_t* h : all_hosts()) {
    if (keep == nullptr || keep(h)) hosts.push_back(h);
  }
  return list_records(hosts, out, count, fill);
}

GVariant* get_access(const char* path) {
  json_t* host = host_at_path(path);
  return host != nullptr ? g_variant_new_byte(static_cast<uint8_t>(int_of(host, "access", 2))) : nullptr;
}

int32_t set_access(const char* path, GVariant* value) {
  json_t* host = host_at_path(path);
  if (host == nullptr) return kNoSuchObject;
  if (!g_variant_is_of_type(value, G_VARIANT_TYPE_BYTE)) return kWrongType;
  store(host, "access", json_integer(g_variant_get_byte(value)), 2);
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

namespace {

// A host's members as the records show them; missing members read as the defaults.
struct HostFacts {
  json_int_t id = 0, access = 2, connection = 0, online_time = 0;
  json_int_t down_bytes = 0, up_bytes = 0, down_rate = 0, up_rate = 0;
  bool online = false;
  const char *mac = "", *name = "", *type = "", *ip = "", *ipv6 = "", *brand = "", *model = "", *system = "";
};

bool flag_in(json_t* v) {
  if (json_is_boolean(v)) return json_is_true(v);
  return json_is_integer(v) && json_integer_value(v) != 0;
}

void take_text(json_t* v, const char** out) {
  if (json_is_string(v)) *out = json_string_value(v);
}

// One pass over the members instead of a lookup per field: a full LAN lists 254
// hosts per call, and the benchmark of the host list runs through here.
HostFacts facts_of(json_t* host) {
  HostFacts f;
  // The iterator walk, not json_object_foreach, which looks every key up again.
  for (void* it = json_object_iter(host); it != nullptr; it = json_object_iter_next(host, it)) {
    const char* key = json_object_iter_key(it);
    json_t* v = json_object_iter_value(it);
    switch (key[0]) {
      case 'a':
        if (strcmp(key, "access") == 0) f.access = number_of(v, 2);
        break;
      case 'b':
        if (strcmp(key, "brand") == 0) take_text(v, &f.brand);
        break;
      case 'c':
        if (strcmp(key, "connection") == 0) f.connection = number_of(v, 0);
        break;
      case 'd':
        if (strcmp(key, "down_bytes") == 0) f.down_bytes = number_of(v, 0);
        if (strcmp(key, "down_rate") == 0) f.down_rate = number_of(v, 0);
        break;
      case 'i':
        if (strcmp(key, "id") == 0) f.id = number_of(v, 0);
        if (strcmp(key, "ip") == 0) take_text(v, &f.ip);
        if (strcmp(key, "ipv6") == 0) take_text(v, &f.ipv6);
        break;
      case 'm':
        if (strcmp(key, "mac") == 0) take_text(v, &f.mac);
        if (strcmp(key, "model") == 0) take_text(v, &f.model);
        break;
      case 'n':
        if (strcmp(key, "name") == 0) take_text(v, &f.name);
        break;
      case 'o':
        if (strcmp(key, "online") == 0) f.online = flag_in(v);
        if (strcmp(key, "online_time") == 0) f.online_time = number_of(v, 0);
        break;
      case 's':
        if (strcmp(key, "system") == 0) take_text(v, &f.system);
        break;
      case 't':
        if (strcmp(key, "type") == 0) take_text(v, &f.type);
        break;
      case 'u':
        if (strcmp(key, "up_bytes") == 0) f.up_bytes = number_of(v, 0);
        if (strcmp(key, "up_rate") == 0) f.up_rate = number_of(v, 0);
        break;
      default:
        break;
    }
  }
  return f;
}

void fill_from(const HostFacts& f, ZoVelLanHost* r) {
  int64_t seconds = f.online ? elapsed() : 0;
  snprintf(r->path, sizeof r->path, "%s%lld", kLanHostPathPrefix, static_cast<long long>(f.id));
  put_text(r->mac, f.mac);
  put_text(r->name, f.name);
  r->internet_access = static_cast<uint8_t>(f.access);
  put_text(r->dev_type, f.type);
  put_text(r->ipv4, f.ip);
  r->connection_type = static_cast<uint8_t>(f.connection);
  put_text(r->brand, f.brand);
  put_text(r->model, f.model);
  put_text(r->system, f.system);
  r->online = f.online ? 1 : 0;
  r->online_time = static_cast<uint32_t>(plus_seconds(f.online_time, seconds));
  r->down_bytes = counter_after(f.down_bytes, f.down_rate, seconds);
  r->up_bytes = counter_after(f.up_bytes, f.up_rate, seconds);
}

}  // namespace

void fill_lan_host(json_t* host, ZoVelLanHost* r) { fill_from(facts_of(host), r); }

void fill_lan_host_ext(json_t* host, ZoVelLanHostExt* r) {
  HostFacts f = facts_of(host);
  fill_from(f, &r->base);
  put_text(r->ipv6, f.ipv6);
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
  return operation("ZoVelGetLANHostByMAC", json_pack("{s:o}", "mac", velsim::shown_text(mac)),
                   [&]() -> int32_t {
                     if (mac == nullptr || host == nullptr) return -1;
                     for (json_t* h : velsim::all_hosts()) {
                       if (g_ascii_strcasecmp(text_of(h, "mac"), mac) == 0) {
                         velsim::fill_lan_host(h, host);
                         velsim::hostile_record(host);
                         return 0;
                       }
                     }
                     return -1;
                   });
}
