// Application pages: the parameters applications keep in uci files under
// /etc/config, and the app market's address issued by the cloud client.
#pragma once

#include <stdint.h>

#include "common/handler.h"

namespace velconfig {

// "getAppConfig": the fixed table app1 = {name, title, src} and appCnt 0.
void get_app_config(lua_State* L, const GetArgs& args);
// Every option of the named file's named sections, quotes kept, and "ret".
void get_app_paras(lua_State* L, const GetArgs& args);
// Changes options of one file from the JSON text on top of the stack through uci.
int32_t set_app_paras(lua_State* L);

// Asks the cloud client for the app market's URL: "url" and "result".
void get_mall_url(lua_State* L, const GetArgs& args);

}  // namespace velconfig
