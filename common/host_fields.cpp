// A LAN host's identifying fields as both host lists show them.
#include "common/host_fields.h"

#include "common/result.h"
#include "platform/text.h"

namespace velconfig {

void set_host_fields(lua_State* L, const ZoVelLanHostExt& host) {
  set_text(L, "ip", field_text(host.base.ipv4));
  set_text(L, "ipv6", field_text(host.ipv6));
  set_text(L, "type", field_text(host.base.dev_type));
  set_text(L, "system", field_text(host.base.system));
  set_text(L, "mac", field_text(host.base.mac));
}

}  // namespace velconfig
