// The interconnect plugin page's keys.
#pragma once

#include "common/key_row.h"
#include "interconnect/interconnect.h"

namespace velconfig {

inline constexpr GetRow kInterconnectGetRows[] = {
    {16, "interConndStatus", get_interconnd_status, "", "ap%d rows, appStatus, configEnbl, onoff, devcnt",
     false},
};

inline constexpr SetRow kInterconnectSetRows[] = {
    {10, "startInterConnd", set_start_interconnd, "", "0 started, other values the platform's code", true},
    {11, "syncConfig", set_sync_config, "table: syncConfig", "1", true},
    {12, "syncOnoff", set_sync_onoff, "table: syncOnoff", "1", true},
    {13, "configAP", set_config_ap, "table: mac, modeflg, ssid2g, pwd2g, enbl2g, ssid5g, pwd5g, enbl5g",
     "0 done, 1 no reply or a text that is not clean, other values the plugin's status", true},
};

}  // namespace velconfig
