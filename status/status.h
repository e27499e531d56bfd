// The status pages: LAN host list, home-page overview, status figures and the
// gateway's identity and addresses.
#pragma once

#include <stdint.h>

#include <lua.hpp>

#include "common/handler.h"
#include "platform/records.h"

namespace velconfig {

// "hostsInfo": filter 0 wired, 1 wireless, anything else all devices.
void get_hosts_info(lua_State* L, int32_t filter);
// "allInfo"
void get_all_info(lua_State* L, const GetArgs& args);
// "gwStatus"
void get_gw_status(lua_State* L, const GetArgs& args);
// "gwInfo": all is true when the page asked for "all" (the Wi-Fi and PPPoE fields).
void get_gw_info(lua_State* L, bool all);
// "gwIPs"
void get_gw_ips(lua_State* L, const GetArgs& args);
// "devType"
void get_dev_type(lua_State* L, const GetArgs& args);

// Whether the IPTV and VoIP services are provisioned.
struct ServiceFlags {
  bool itv;
  bool voip;
};
// From the numeric device type of a device information record already read: type 13
// asks the IPTV record, every other type the LOID registration check.
ServiceFlags service_flags(int32_t device_type);
// Reads the device information record first.
ServiceFlags read_service_flags();

}  // namespace velconfig
