// "hasUsb": whether the gateway has a USB port.
#include "platform/zovel.h"
#include "storage/storage.h"

namespace velconfig {

// The platform call's own result is not examined: only the flag it writes counts.
void get_has_usb(lua_State* L, const GetArgs&) {
  int32_t flag = 0;
  ZoVelSupportUSB(&flag);
  lua_pushnumber(L, flag != 0 ? 1 : 0);
}

}  // namespace velconfig
