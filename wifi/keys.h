// The Wi-Fi pages' keys: whether there is Wi-Fi, the radios' first SSIDs, the Wi-Fi
// timer and the EasyMesh configuration.
#pragma once

#include "common/key_row.h"
#include "wifi/mesh.h"
#include "wifi/wifi.h"

namespace velconfig {

inline constexpr GetRow kWifiGetRows[] = {
    {1, "hasWiFi", get_has_wifi, "", "1 when the gateway has Wi-Fi, else 0", false},
    {5, "hasMesh", get_has_mesh, "", "1 without Wi-Fi, with a readable MAP agent, or with mesh on; else 0",
     false},
    {14, "easymesh_config", get_easymesh_config, "",
     "enblMesh, enbl1, ssid1, key1, auth1, enbl2, ssid2, key2, auth2, the interconnect status (ap%d rows, "
     "appStatus, configEnbl, onoff, devcnt), rssi1, rssi2",
     false},
    {17, "wifiBasic", get_wifi_basic, "",
     "enbl1, ssid1, powerLevel1, wallPower1, auth1, passwd1, the same with 2 and standard2 for 5 GHz "
     "(dual band only), dualBand, wifi6",
     false},
    {18, "wifiAdv", get_wifi_timer, "", "timerEnbl, startTime, endTime, sysTime", false},
    {37, "wifiSsid", get_wifi_ssid, "", "hasWiFi, ssid, bType, productCls, lanIp", false},
};

inline constexpr SetRow kWifiSetRows[] = {
    {5, "easymesh_config", set_easymesh_config,
     "table: easymeshEnbl, then mesh_2G_enbl/ssid/auth/passwd/rssi and the same for 5G (read only when "
     "easymeshEnbl is 1)",
     "the mesh settings write's code (0 done), 1 a text that is not UTF-8", true},
    {6, "wifiBasic", set_wifi_basic,
     "table: wifi_dualBand, wifi_2G_enbl/ssid/auth/passwd/strength, the same for 5G",
     "0 done (or no main SSID), 1 a text that is not clean, other values the platform's code", true},
    {7, "wifiAdv", set_wifi_timer,
     "table: wifi_timing, start_time, end_time (read when wifi_timing is not 0)",
     "0 done (or off and staying off), 1 a text that is not clean, other values the platform's code", true},
};

}  // namespace velconfig
