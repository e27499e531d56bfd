// "ddns": the dynamic-DNS entries. An entry is known to the page by its domain; the
// platform knows it by its object path.
#include <string.h>

#include "common/result.h"
#include "common/table_field.h"
#include "network/network.h"
#include "platform/holders.h"
#include "platform/object_path.h"
#include "platform/text.h"
#include "platform/zovel.h"

namespace velconfig {
namespace {

enum DdnsOperation { kDelete = 0, kAdd = 1, kModify = 2 };

struct DdnsRequest {
  char add[8];
  char enable[8];
  char provider[64];
  char domain[64];
  char hostname[64];
  char username[32];
  char passwd[32];
};

// Replaces a record text whole, so no tail of the old value stays behind it.
template <size_t N>
void replace_text(char (&field)[N], const char* text) {
  memset(field, 0, N);
  copy_text(field, text);
}

int32_t add_entry(const DdnsRequest& req) {
  ZoVelDdnsServer server = {};
  // Stored as converted: an add with enable 5 asks for 5.
  server.enable = decimal_value(req.enable);
  copy_text(server.domain, req.domain);
  copy_text(server.hostname, req.hostname);
  copy_text(server.username, req.username);
  copy_text(server.password, req.passwd);
  return ZoVelAddDDNSServerInstance(&server);
}

// Modify or delete the first listed entry with the request's domain; 0 when none has it.
int32_t change_entry(int32_t operation, const DdnsRequest& req) {
  PlatformList<ZoVelDdnsServer> list;
  int32_t code = list.fill(ZoVelGetDDNSServerObjs);
  if (code != 0) return code;
  for (ZoVelDdnsServer& server : list) {
    if (field_text(server.domain) != req.domain) continue;
    if (operation == kDelete) return ZoVelDelDDNSServerInstance(path_block(server.path));
    // Domain and provider stay as listed.
    server.enable = decimal_value(req.enable) != 0 ? 1 : 0;
    replace_text(server.hostname, req.hostname);
    replace_text(server.username, req.username);
    replace_text(server.password, req.passwd);
    return ZoVelSetDDNSServerInstance(path_block(server.path), &server);
  }
  return 0;
}

}  // namespace

void get_ddns(lua_State* L, const GetArgs&) {
  lua_newtable(L);
  PlatformList<ZoVelDdnsServer> list;
  int32_t code = list.fill(ZoVelGetDDNSServerObjs);
  set_number(L, "count", list.reported());
  if (code != 0) return;
  int row = 0;
  for (const ZoVelDdnsServer& server : list) {
    begin_row(L, "ddnsCfg%d", ++row);
    set_text(L, "provider", field_text(server.provider));
    set_text(L, "domain", field_text(server.domain));
    set_text(L, "hostname", field_text(server.hostname));
    set_text(L, "username", field_text(server.username));
    set_text(L, "password", field_text(server.password));
    set_number(L, "enable", server.enable);
    end_row(L);
  }
}

// "add" 1 adds, 2 modifies, 0 deletes the entry with the request's domain. 1: no
// table, a field that is not a clean text, a password longer than its field, or an
// unknown operation; otherwise the platform's code.
int32_t set_ddns(lua_State* L) {
  if (!lua_istable(L, -1)) return 1;
  DdnsRequest req;
  // Every field is read whatever the operation; "provider" is read but never stored.
  if (!read_field(L, "add", req.add) || !read_field(L, "enable", req.enable) ||
      !read_field(L, "provider", req.provider) || !read_field(L, "domain", req.domain) ||
      !read_field(L, "hostname", req.hostname) || !read_field(L, "username", req.username) ||
      read_secret(L, "passwd", req.passwd) != SecretText::kFits) {
    return kTextRefused;
  }

  int32_t operation = decimal_value(req.add);
  if (operation == kAdd) return add_entry(req);
  if (operation != kDelete && operation != kModify) {
    ZoVelLog(kLogError, "Operation[%d] error.", operation);
    return 1;
  }
  return change_entry(operation, req);
}

}  // namespace velconfig
