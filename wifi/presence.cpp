// "hasWiFi": whether the gateway has Wi-Fi at all.
#include "platform/zovel.h"
#include "wifi/wifi.h"

namespace velconfig {

// The platform call's own result is not examined: only the flag it writes counts.
void get_has_wifi(lua_State* L, const GetArgs&) {
  int32_t flag = 0;
  ZoVelSupportWiFi(&flag);
  lua_pushnumber(L, flag != 0 ? 1 : 0);
}

}  // namespace velconfig
