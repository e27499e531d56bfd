// The write keys in comparison order; the first equal key wins. A null handler is a
// key whose feature is not built yet: set answers it with 1, as an unknown key.
#include "module/dispatch.h"
#include "network/network.h"
#include "system/system.h"

namespace velconfig {
namespace {

const SetKey kSetKeys[] = {
    {"account", nullptr},
    {"lan", set_lan},
    {"ddns", set_ddns},
    {"iptv", set_iptv},
    {"easymesh_config", nullptr},
    {"wifiBasic", nullptr},
    {"wifiAdv", nullptr},
    {"pmSetSingle", set_pm_single},
    {"pmSetAll", set_pm_all},
    {"startInterConnd", nullptr},
    {"syncConfig", nullptr},
    {"syncOnoff", nullptr},
    {"configAP", nullptr},
    {"hostSettings", set_host_settings},
    {"rmBlackHost", set_rm_black_host},
    {"restore", set_restore},
    {"fwrestore", set_fwrestore},
    {"reboot", set_reboot},
    {"checkTAPasswd", nullptr},
    {"checkUAPasswd", nullptr},
    {"setloid", nullptr},
    {"registerloid", nullptr},
    {"usbModifyLabel", nullptr},
    {"setAppParas", nullptr},
    {"logInfo", nullptr},
};
static_assert(sizeof kSetKeys / sizeof kSetKeys[0] == 25, "set knows 25 keys");

}  // namespace

SetHandler find_set_handler(std::string_view key) {
  for (const SetKey& row : kSetKeys) {
    if (key == row.key) return row.handler;
  }
  return nullptr;
}

std::pair<const SetKey*, size_t> set_keys() { return {kSetKeys, sizeof kSetKeys / sizeof kSetKeys[0]}; }

}  // namespace velconfig
