// The fields both LAN host lists (the status page's and the access control page's)
// show for a host, in the same order.
#pragma once

#include <lua.hpp>

#include "platform/records.h"

namespace velconfig {

// "ip", "ipv6", "type", "system", "mac" of an extended LAN host record into the
// table on top of the stack. May raise Lua's out-of-memory error.
void set_host_fields(lua_State* L, const ZoVelLanHostExt& host);

}  // namespace velconfig
