// Port-forwarding rules: "pmLists", "pmSetSingle" (one rule, chosen by its
// description) and "pmSetAll". Rules are platform objects reached by their paths.
#include <glib.h>
#include <string.h>

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

using RuleList = PlatformList<ZoVelPortMapping>;

int32_t set_rule_enable(const ZoVelPortMapping& rule, bool on) {
  return ZoVelDBusSetProperty(kIgdService, path_text(rule.path).text, "com.zom.igd1.PortMapping", "Enable",
                              g_variant_new_boolean(on));
}

int32_t add_rule(lua_State* L, const char* desp) {
  ZoVelPortMapping rule = {};
  char client[16];
  char protocol[8];
  char external_port[8];
  char internal_port[8];
  if (!read_field(L, "client", client) || !read_field(L, "protocol", protocol) ||
      !read_field(L, "exPort", external_port) || !read_field(L, "inPort", internal_port)) {
    return kTextRefused;
  }
  copy_text(rule.client, client);
  copy_text(rule.protocol, protocol);
  rule.external_port = static_cast<uint32_t>(decimal_value(external_port));
  rule.internal_port = static_cast<uint32_t>(decimal_value(internal_port));
  rule.enable = 1;
  copy_text(rule.description, desp);
  // No duplicate check: the page decides whether a second rule of that name makes sense.
  return ZoVelAddPortMapping(&rule);
}

}  // namespace

void get_pm_lists(lua_State* L, const GetArgs&) {
  lua_newtable(L);
  {
    RuleList list;
    int32_t code = list.fill(ZoVelGetPortMappingObjs);
    set_number(L, "count", list.reported());
    // A failed listing shows its count but no rows.
    int row = 0;
    for (const ZoVelPortMapping& rule : list) {
      if (code != 0) break;
      begin_row(L, "pmRule%d", ++row);
      set_text(L, "desp", field_text(rule.description));
      set_text(L, "client", field_text(rule.client));
      set_text(L, "protocol", field_text(rule.protocol));
      set_number(L, "exPort", rule.external_port);
      set_number(L, "inPort", rule.internal_port);
      set_number(L, "enable", rule.enable);
      end_row(L);
    }
  }
  // The page shows the LAN the rules point into, whether or not the rules could be listed.
  ZoVelDhcpServer server = {};
  ZoVelGetDHCPServer(&server);
  std::string_view lan_ip = field_text(server.lan_ip);
  std::string_view mask = field_text(server.subnet_mask);
  set_text(L, "lanIp", lan_ip.empty() ? "0.0.0.0" : lan_ip);
  set_text(L, "mask", mask.empty() ? "0.0.0.0" : mask);
}

// "add" adds a rule; "del", "enable", "disable" act on the first rule whose
// description is "desp" (0 when none is). 1 when a field is not a clean text;
// otherwise the platform's code.
int32_t set_pm_single(lua_State* L) {
  char op[8] = {};
  char desp[32] = {};
  if (lua_istable(L, -1) && (!read_field(L, "op", op) || !read_field(L, "desp", desp))) return kTextRefused;
  if (strcmp(op, "add") == 0) return add_rule(L, desp);

  RuleList list;
  int32_t code = list.fill(ZoVelGetPortMappingObjs);
  if (code != 0) return code;
  for (const ZoVelPortMapping& rule : list) {
    if (field_text(rule.description) != desp) continue;
    if (strcmp(op, "del") == 0) return ZoVelDelPortMapping(path_block(rule.path));
    if (strcmp(op, "enable") == 0) return set_rule_enable(rule, true);
    if (strcmp(op, "disable") == 0) return set_rule_enable(rule, false);
    return 0;
  }
  return 0;
}

// Applies "op" to every rule in list order; the first failure stops it and is the
// result (rules before it stay changed). Rules already in the asked state are skipped.
// 1 when "op" is not a clean text.
int32_t set_pm_all(lua_State* L) {
  char op[8] = {};
  if (lua_istable(L, -1) && !read_field(L, "op", op)) return kTextRefused;
  RuleList list;
  int32_t code = list.fill(ZoVelGetPortMappingObjs);
  if (code != 0) return code;
  if (list.reported() == 0) return 0;

  for (const ZoVelPortMapping& rule : list) {
    if (strcmp(op, "del") == 0) {
      code = ZoVelDelPortMapping(path_block(rule.path));
    } else if (strcmp(op, "enable") == 0) {
      if (rule.enable == 0) code = set_rule_enable(rule, true);
    } else if (strcmp(op, "disable") == 0) {
      if (rule.enable != 0) code = set_rule_enable(rule, false);
    } else {
      return 0;
    }
    if (code != 0) return code;
  }
  return 0;
}

}  // namespace velconfig
