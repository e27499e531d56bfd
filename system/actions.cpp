// "reboot", "restore" and "fwrestore": single requests; nothing waits for the action.
#include "platform/dbus.h"
#include "platform/zovel.h"
#include "system/system.h"

namespace velconfig {

int32_t set_restore(lua_State*) {
  // Stays 1 when the platform writes nothing.
  int32_t status = 1;
  ZoVelSysCmdLocalRecovery(&status, nullptr);
  return status;
}

int32_t set_fwrestore(lua_State*) {
  ZoVelLog(kLogNotice, "Framework do restore.");
  ZoVelDBusCallMethod(kSafService, "/com/zom/saf1", "com.zom.saf1.framework", "Restore", nullptr, nullptr,
                      -1);
  return 0;
}

int32_t set_reboot(lua_State*) {
  ZoVelSysCmdReboot(nullptr, nullptr);
  return 0;
}

}  // namespace velconfig
