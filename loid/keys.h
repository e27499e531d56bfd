// The LOID registration page's keys.
#pragma once

#include "common/key_row.h"
#include "loid/loid.h"

namespace velconfig {

inline constexpr GetRow kLoidGetRows[] = {
    {20, "itvVoipReg", get_itv_voip_reg, "", "itv, voip: whether IPTV and voice were delivered", false},
    {33, "checkLoid", get_check_loid, "", "the LOID registration status, unsigned", false},
    {34, "regProcess", get_reg_process, "",
     "the progress text checkLoidStatus({\"result\":status,\"msg\":\"services\"}); a refused registration "
     "(405, 407, 409) stores the LOID hold-off mark",
     true},
};

inline constexpr SetRow kLoidSetRows[] = {
    {21, "setloid", set_loid, "table: loid, loidPsd, hasWiFi, and when hasWiFi is not 0 wifiSsid, wifiPsd",
     "0 stored, the seconds still to wait after a refused registration, 1 a text that is not UTF-8, other "
     "values the platform's code",
     true},
    {22, "registerloid", set_register_loid, "", "the status the registration request reports (0 started)",
     true},
};

}  // namespace velconfig
