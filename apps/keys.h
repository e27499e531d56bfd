// The application pages' keys: the pages' fixed settings, per-application
// parameters and the app market's address.
#pragma once

#include "apps/apps.h"
#include "common/key_row.h"

namespace velconfig {

inline constexpr GetRow kAppsGetRows[] = {
    {7, "getAppConfig", get_app_config, "", "the pages' fixed settings", false},
    {35, "getMallUrl", get_mall_url, "", "url (on success), result (0 success, 1 failure)", false},
    {36, "getAppParas", get_app_paras, "a1: the application's file name under /etc/config",
     "'SECTION' tables (the name as quoted in the file) of option -> value, quotes kept; ret (1 when an "
     "option was read, else 0)",
     false},
};

inline constexpr SetRow kAppsSetRows[] = {
    {24, "setAppParas", set_app_paras,
     "text: JSON with \"config\" (the file name) and \"SECTION.OPTION\" texts",
     "0 the last option looked up was set (also: none qualified, a missing file, a name it will not use); "
     "-1 the JSON had no text for it; 1 not JSON or no \"config\"",
     true},
};

}  // namespace velconfig
