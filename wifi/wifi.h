// The Wi-Fi pages: the first SSID of each radio ("wifiBasic", "wifiSsid") and the
// Wi-Fi timer ("wifiAdv"). Write handlers read their table from the top of the
// stack and may raise the table field reader's Lua error (as a LuaArgError).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "common/handler.h"

namespace velconfig {

// The band labels of the two SSIDs the pages manage; every other label is left alone.
constexpr const char* kLabel2G = "2.4G-1";
constexpr const char* kLabel5G = "5G-1";

// "hasWiFi": 1 when the platform reports Wi-Fi, else 0 (wifi/presence.cpp).
void get_has_wifi(lua_State* L, const GetArgs& args);

// ---- basic settings (wifi/basic.cpp) ----
void get_wifi_basic(lua_State* L, const GetArgs& args);
int32_t set_wifi_basic(lua_State* L);
void get_wifi_ssid(lua_State* L, const GetArgs& args);

// The page's security mode as the platform's beacon type, and for "Open" and
// "Shared" the basic authentication mode (basic_auth left alone otherwise). Each
// output holds at least 16 characters.
void auth_to_beacon_type(const char* mode, char* beacon_type, char* basic_auth);
// The platform's beacon type as the page's security mode ("Open" when unknown).
void beacon_type_to_auth(const char* beacon_type, char* mode);
// The WEP encryption level of a key of length bytes; out (at least 8 characters)
// is left alone for a length that is no WEP key length.
void wep_key_level(int32_t length, char* out);

// ---- timer (wifi/timer.cpp) ----
void get_wifi_timer(lua_State* L, const GetArgs& args);
int32_t set_wifi_timer(lua_State* L);

}  // namespace velconfig
