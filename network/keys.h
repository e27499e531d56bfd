// The network services pages' keys: LAN and DHCP, DDNS, IPTV, port mapping and
// per-host Internet access.
#pragma once

#include "common/key_row.h"
#include "network/network.h"

namespace velconfig {

inline constexpr GetRow kNetworkGetRows[] = {
    {11, "lan", get_lan, "", "dhcpEnbl, lanIp, poolStart, poolEnd, subnetMask", false},
    {12, "ddns", get_ddns, "", "ddnsCfg%d rows, count", false},
    {13, "iptv", get_iptv, "", "enable, vlanOnOff, vlanid, bindlanport", false},
    {15, "pmLists", get_pm_lists, "",
     "pmRule%d rows (desp, client, protocol, exPort, inPort, enable), count, lanIp, mask", false},
    {21, "blackHosts", get_black_hosts, "", "black-listed hosts as rows, count", false},
};

inline constexpr SetRow kNetworkSetRows[] = {
    {2, "lan", set_lan, "table: dhcpEnbl, oldLanIp, lanIp, poolStart, poolEnd, subnetMask",
     "0 written, 2 written and moved, 1 no table", true},
    {3, "ddns", set_ddns, "table: add/edit/del with the entry's fields", "0 done, other values failure",
     true},
    {4, "iptv", set_iptv, "table: enable, vlanOnOff, vlanid, bindlanport", "the platform's code", true},
    {8, "pmSetSingle", set_pm_single,
     "table: op (add, del, enable, disable), desp, client, protocol, exPort, inPort", "the platform's code",
     true},
    {9, "pmSetAll", set_pm_all, "table: op (del, enable, disable)", "the platform's code", true},
    {14, "hostSettings", set_host_settings, "table: type, mac, onOff",
     "0 done, 1 unknown host, other values the platform's code", true},
    {15, "rmBlackHost", set_rm_black_host, "table: mac",
     "0 done, 1 unknown host, other values the platform's code", true},
};

}  // namespace velconfig
