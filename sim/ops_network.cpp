// Simulated network services: the DHCP server record and its D-Bus properties, the
// DDNS server instances and the port-mapping rules with their "Enable" property.
// Writes are journaled with the record fields and paths they carry.
#include <stdio.h>
#include <string.h>

#include "platform/zovel.h"
#include "sim/dbus.h"
#include "sim/sim.h"

using velsim::array_at;
using velsim::int_of;
using velsim::object_at;
using velsim::operation;
using velsim::put_text;
using velsim::text_of;

namespace velsim {
namespace {

constexpr const char* kService = "com.zom.igd1";
constexpr const char* kDhcpPath = "/com/zom/igd1/Config/DHCPServer";
constexpr const char* kDhcpInterface = "com.zom.igd1.DHCPServer";
constexpr const char* kDdnsPathPrefix = "/com/zom/igd1/Config/DDNS/";
constexpr const char* kPortMappingPathPrefix = "/com/zom/igd1/Config/PortMapping/";

// A record text as JSON, bounded by its field.
template <size_t N>
json_t* text_json(const char (&field)[N]) {
  return shown_text(field, N);
}

// ---- DHCP server ----

GVariant* dhcp_text(const char* key) { return g_variant_new_string(text_of(object_at("dhcp"), key)); }

int32_t set_dhcp_text(const char* key, GVariant* value) {
  if (!g_variant_is_of_type(value, G_VARIANT_TYPE_STRING)) return kWrongType;
  store(object_at("dhcp"), key, json_string(g_variant_get_string(value, nullptr)));
  return 0;
}

// What no gateway keeps: an address or mask that is not a dotted quad, and a pool
// (while the server hands addresses out) outside the LAN or running backwards.
int32_t judge_dhcp(const char*) {
  json_t* dhcp = object_at("dhcp");
  uint32_t ip, mask, first, last;
  if (!parse_ipv4(text_of(dhcp, "ip"), &ip) || !parse_ipv4(text_of(dhcp, "mask"), &mask)) return kWrongType;
  if (!flag_of(dhcp, "enable")) return 0;
  if (!parse_ipv4(text_of(dhcp, "min"), &first) || !parse_ipv4(text_of(dhcp, "max"), &last))
    return kWrongType;
  bool inside = (first & mask) == (ip & mask) && (last & mask) == (ip & mask);
  return inside && first <= last ? 0 : kWrongType;
}

const WriteCheckTable kDhcpChecks{{kDhcpInterface, judge_dhcp}};

const PropertyTable kDhcpProperties{
    {kService, kDhcpPath, kDhcpInterface, "MinAddress", [](const char*) { return dhcp_text("min"); },
     [](const char*, GVariant* v) { return set_dhcp_text("min", v); }},
    {kService, kDhcpPath, kDhcpInterface, "MaxAddress", [](const char*) { return dhcp_text("max"); },
     [](const char*, GVariant* v) { return set_dhcp_text("max", v); }},
    {kService, kDhcpPath, kDhcpInterface, "SubnetMask", [](const char*) { return dhcp_text("mask"); },
     [](const char*, GVariant* v) { return set_dhcp_text("mask", v); }},
    {kService, kDhcpPath, kDhcpInterface, "IPAddr", [](const char*) { return dhcp_text("ip"); },
     [](const char*, GVariant* v) { return set_dhcp_text("ip", v); }},
    {kService, kDhcpPath, kDhcpInterface, "Enable",
     [](const char*) { return g_variant_new_boolean(flag_of(object_at("dhcp"), "enable")); },
     [](const char*, GVariant* v) -> int32_t {
       if (!g_variant_is_of_type(v, G_VARIANT_TYPE_BOOLEAN)) return kWrongType;
       store(object_at("dhcp"), "enable", json_boolean(g_variant_get_boolean(v)));
       return 0;
     }},
};

// ---- listed objects (DDNS instances, port-mapping rules) ----

void object_path(char (&out)[256], const char* prefix, json_t* entry) {
  snprintf(out, sizeof out, "%s%lld", prefix, static_cast<long long>(int_of(entry, "id")));
}

// Index in the model array of the entry whose object path is path, or -1.
long find_entry(json_t* entries, const char* prefix, const char* path) {
  size_t i;
  json_t* entry;
  json_array_foreach(entries, i, entry) {
    char own[256];
    object_path(own, prefix, entry);
    if (json_is_object(entry) && strcmp(own, path) == 0) return static_cast<long>(i);
  }
  return -1;
}

// The id after the largest in use; false when the largest is the last one there is
// (an id is never given twice).
bool next_id(json_t* entries, json_int_t* id) {
  json_int_t top = 0;
  size_t i;
  json_t* entry;
  json_array_foreach(entries, i, entry) {
    if (int_of(entry, "id") > top) top = int_of(entry, "id");
  }
  return !__builtin_add_overflow(top, 1, id);
}

template <class Record, class Fill>
int32_t list_entries(const char* key, Record** out, int32_t* count, Fill fill) {
  return list_records(objects_in(key), out, count, fill);
}

// Bounded copy of a path block, for paths that fill all 256 bytes.
struct BlockText {
  char text[257];
};
BlockText block_text(const ZoVelObjPath& block) {
  BlockText t = {};
  memcpy(t.text, block.path, sizeof block.path);
  return t;
}

// ---- DDNS ----

const std::initializer_list<ByteRange> kDdnsReserved{VELSIM_RANGE(ZoVelDdnsServer, reserved0),
                                                     VELSIM_RANGE(ZoVelDdnsServer, reserved1),
                                                     VELSIM_RANGE(ZoVelDdnsServer, reserved2)};

void fill_ddns(json_t* entry, ZoVelDdnsServer* r) {
  put_reserved(entry, r, kDdnsReserved);
  object_path(r->path, kDdnsPathPrefix, entry);
  r->enable = static_cast<int32_t>(int_of(entry, "enable"));
  put_text(r->provider, text_of(entry, "provider"));
  put_text(r->username, text_of(entry, "username"));
  put_text(r->password, text_of(entry, "password"));
  put_text(r->domain, text_of(entry, "domain"));
  put_text(r->hostname, text_of(entry, "hostname"));
}

// The record's fields as the model keeps them (and the journal shows them).
json_t* ddns_fields(const ZoVelDdnsServer* r) {
  json_t* j = json_object();
  if (r == nullptr) return j;
  json_object_set_new(j, "enable", json_integer(r->enable));
  json_object_set_new(j, "provider", text_json(r->provider));
  json_object_set_new(j, "username", text_json(r->username));
  json_object_set_new(j, "password", text_json(r->password));
  json_object_set_new(j, "domain", text_json(r->domain));
  json_object_set_new(j, "hostname", text_json(r->hostname));
  json_t* reserved = reserved_of(r, kDdnsReserved);
  if (json_object_size(reserved) > 0) json_object_set(j, "reserved", reserved);
  json_decref(reserved);
  return j;
}

// ---- port mapping ----

const std::initializer_list<ByteRange> kRuleReserved{VELSIM_RANGE(ZoVelPortMapping, reserved0),
                                                     VELSIM_RANGE(ZoVelPortMapping, reserved1)};

void fill_rule(json_t* entry, ZoVelPortMapping* r) {
  put_reserved(entry, r, kRuleReserved);
  object_path(r->path, kPortMappingPathPrefix, entry);
  r->enable = static_cast<int32_t>(int_of(entry, "enable"));
  r->external_port = static_cast<uint32_t>(int_of(entry, "external_port"));
  r->internal_port = static_cast<uint32_t>(int_of(entry, "internal_port"));
  put_text(r->protocol, text_of(entry, "protocol"));
  put_text(r->client, text_of(entry, "client"));
  put_text(r->description, text_of(entry, "description"));
}

json_t* rule_fields(const ZoVelPortMapping* r) {
  json_t* j = json_object();
  if (r == nullptr) return j;
  json_object_set_new(j, "enable", json_integer(r->enable));
  json_object_set_new(j, "external_port", json_integer(r->external_port));
  json_object_set_new(j, "internal_port", json_integer(r->internal_port));
  json_object_set_new(j, "protocol", text_json(r->protocol));
  json_object_set_new(j, "client", text_json(r->client));
  json_object_set_new(j, "description", text_json(r->description));
  json_t* reserved = reserved_of(r, kRuleReserved);
  if (json_object_size(reserved) > 0) json_object_set(j, "reserved", reserved);
  json_decref(reserved);
  return j;
}

// A rule's ports are 1-65535, as a gateway's firewall takes them.
bool rule_ports_valid(const ZoVelPortMapping& r) {
  return r.external_port >= 1 && r.external_port <= 65535 && r.internal_port >= 1 && r.internal_port <= 65535;
}

bool ddns_storable(const ZoVelDdnsServer& r) {
  return storable(r.provider) && storable(r.username) && storable(r.password) && storable(r.domain) &&
         storable(r.hostname);
}

json_t* rule_at_path(const char* path) {
  long i = path != nullptr ? find_entry(array_at("port_mappings"), kPortMappingPathPrefix, path) : -1;
  return i >= 0 ? json_array_get(array_at("port_mappings"), static_cast<size_t>(i)) : nullptr;
}

const PropertyTable kPortMappingProperties{
    {kService, kPortMappingPathPrefix, "com.zom.igd1.PortMapping", "Enable",
     [](const char* path) -> GVariant* {
       json_t* rule = rule_at_path(path);
       return rule != nullptr ? g_variant_new_boolean(int_of(rule, "enable") != 0) : nullptr;
     },
     [](const char* path, GVariant* v) -> int32_t {
       json_t* rule = rule_at_path(path);
       if (rule == nullptr) return kNoSuchObject;
       if (!g_variant_is_of_type(v, G_VARIANT_TYPE_BOOLEAN)) return kWrongType;
       store(rule, "enable", json_integer(g_variant_get_boolean(v) ? 1 : 0));
       return 0;
     }},
};

// Adds fields (a record's, stolen) to the model array under a new id; fails (-1)
// when no id is left.
int32_t add_entry(const char* key, json_t* fields) {
  json_t* entries = array_at(key);
  json_int_t id;
  if (!next_id(entries, &id)) {
    json_decref(fields);
    return -1;
  }
  json_object_set_new(fields, "id", json_integer(id));
  json_array_append_new(entries, fields);
  model_changed();
  return 0;
}

int32_t delete_entry(const char* key, const char* prefix, const ZoVelObjPath& path) {
  json_t* entries = array_at(key);
  long i = find_entry(entries, prefix, block_text(path).text);
  if (i < 0) return kNoSuchObject;
  json_array_remove(entries, static_cast<size_t>(i));
  model_changed();
  return 0;
}

// A set sends the record whole: every field it carries replaces the entry's.
int32_t update_ddns(const ZoVelObjPath& path, const ZoVelDdnsServer* server) {
  if (server == nullptr) return -1;
  if (!ddns_storable(*server)) return kWrongType;
  json_t* entries = array_at("ddns");
  long i = find_entry(entries, kDdnsPathPrefix, block_text(path).text);
  if (i < 0) return kNoSuchObject;
  json_t* entry = json_array_get(entries, static_cast<size_t>(i));
  json_t* fields = ddns_fields(server);
  const char* key;
  json_t* value;
  json_object_foreach(fields, key, value) {
    if (strcmp(key, "reserved") != 0) store(entry, key, json_incref(value));
  }
  json_decref(fields);
  store_reserved(entry, reserved_of(server, kDdnsReserved), kDdnsReserved);
  model_changed();
  return 0;
}

json_t* path_args(const ZoVelObjPath& path, json_t* fields) {
  json_t* args = fields != nullptr ? fields : json_object();
  json_object_set_new(args, "path", shown_text(block_text(path).text));
  return args;
}

}  // namespace

bool parse_ipv4(const char* text, uint32_t* address) {
  uint32_t value = 0;
  const char* p = text;
  for (int part = 0; part < 4; ++part) {
    if (part > 0 && *p++ != '.') return false;
    uint32_t number = 0;
    int digits = 0;
    for (; *p >= '0' && *p <= '9' && digits < 4; ++p, ++digits)
      number = number * 10 + static_cast<uint32_t>(*p - '0');
    if (digits == 0 || digits > 3 || number > 255) return false;
    value = value << 8 | number;
  }
  if (*p != '\0') return false;
  if (address != nullptr) *address = value;
  return true;
}

}  // namespace velsim

extern "C" int32_t ZoVelGetDHCPServer(ZoVelDhcpServer* server) {
  return operation("ZoVelGetDHCPServer", nullptr, [&] {
    if (server == nullptr) return -1;
    json_t* dhcp = object_at("dhcp");
    server->enable = velsim::flag_of(dhcp, "enable") ? 1 : 0;
    put_text(server->pool_start, text_of(dhcp, "min"));
    put_text(server->pool_end, text_of(dhcp, "max"));
    put_text(server->lan_ip, text_of(dhcp, "ip"));
    put_text(server->subnet_mask, text_of(dhcp, "mask"));
    velsim::hostile_record(server);
    return 0;
  });
}

extern "C" int32_t ZoVelGetDDNSServerObjs(ZoVelDdnsServer** servers, int32_t* count) {
  return operation("ZoVelGetDDNSServerObjs", nullptr,
                   [&] { return velsim::list_entries("ddns", servers, count, velsim::fill_ddns); });
}

extern "C" int32_t ZoVelAddDDNSServerInstance(ZoVelDdnsServer* server) {
  return operation("ZoVelAddDDNSServerInstance", velsim::ddns_fields(server), [&] {
    if (server == nullptr) return -1;
    if (!velsim::ddns_storable(*server)) return velsim::kWrongType;
    return velsim::add_entry("ddns", velsim::ddns_fields(server));
  });
}

extern "C" int32_t ZoVelSetDDNSServerInstance(ZoVelObjPath path, ZoVelDdnsServer* server) {
  return operation("ZoVelSetDDNSServerInstance", velsim::path_args(path, velsim::ddns_fields(server)),
                   [&] { return velsim::update_ddns(path, server); });
}

extern "C" int32_t ZoVelDelDDNSServerInstance(ZoVelObjPath path) {
  return operation("ZoVelDelDDNSServerInstance", velsim::path_args(path, nullptr),
                   [&] { return velsim::delete_entry("ddns", velsim::kDdnsPathPrefix, path); });
}

extern "C" int32_t ZoVelGetPortMappingObjs(ZoVelPortMapping** rules, int32_t* count) {
  return operation("ZoVelGetPortMappingObjs", nullptr,
                   [&] { return velsim::list_entries("port_mappings", rules, count, velsim::fill_rule); });
}

extern "C" int32_t ZoVelAddPortMapping(ZoVelPortMapping* rule) {
  return operation("ZoVelAddPortMapping", velsim::rule_fields(rule), [&] {
    if (rule == nullptr) return -1;
    if (!velsim::storable(rule->protocol) || !velsim::storable(rule->client) ||
        !velsim::storable(rule->description) || !velsim::rule_ports_valid(*rule)) {
      return velsim::kWrongType;
    }
    return velsim::add_entry("port_mappings", velsim::rule_fields(rule));
  });
}

extern "C" int32_t ZoVelDelPortMapping(ZoVelObjPath path) {
  return operation("ZoVelDelPortMapping", velsim::path_args(path, nullptr), [&] {
    return velsim::delete_entry("port_mappings", velsim::kPortMappingPathPrefix, path);
  });
}
