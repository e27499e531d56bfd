// The status pages' keys: the gateway's identity and capability, the home page's
// overview, the status figures and the LAN host list.
#pragma once

#include <string.h>

#include "common/key_row.h"
#include "platform/text.h"
#include "status/status.h"

namespace velconfig {

inline constexpr GetRow kStatusGetRows[] = {
    {2, "hasPots", get_has_pots, "", "1 when the gateway has telephony ports, else 0", false},
    {4, "devType", get_dev_type, "", "the device type number", false},
    {6, "gwIPs", get_gw_ips, "", "LANIP, WANIP, LAN6IP, WAN6IP", false},
    {8, "allInfo", get_all_info, "",
     "pc%d, wifi%d device rows with speeds, wcount, wlcount, speed totals, itv, voip, storage%d, scount, "
     "wanConnect, wanUpTime",
     false},
    {9, "gwStatus", get_gw_status, "",
     "upTime, sysTime, cpuUsed, wcount, wlcount, itv, voip, storage%d, scount", false},
    // An absent argument is not "all".
    {10, "gwInfo",
     [](lua_State* L, const GetArgs& a) { get_gw_info(L, a.a1 != nullptr && strcmp(a.a1, "all") == 0); },
     "a1: \"all\" adds the Wi-Fi names and the PPPoE account",
     "DevType, ProductCls, ProductSN, MAC, SWVer, Vendor, LANIP, LANIPv6, WANIP, WANIPv6, MarkType, "
     "DeviceModel, NASN",
     false},
    // An absent filter reads as 0, as decimal conversion of nothing gives.
    {19, "hostsInfo", [](lua_State* L, const GetArgs& a) { get_hosts_info(L, decimal_value(a.a1)); },
     "a1: filter, 0 wired, 1 wireless, other all",
     "dev%d rows (ip, ipv6, type, system, mac, upSpeed, downSpeed, restrict, black), curip, count", false},
};

}  // namespace velconfig
