// The write keys in comparison order; the first equal key wins. A null handler is a
// key whose feature is not built yet: set answers it with 1, as an unknown key.
#include "apps/apps.h"
#include "interconnect/interconnect.h"
#include "module/dispatch.h"
#include "network/network.h"
#include "storage/storage.h"
#include "system/system.h"
#include "wifi/mesh.h"
#include "wifi/wifi.h"

namespace velconfig {
namespace {

const SetKey kSetKeys[] = {
    {"account", change_account_password},
    {"lan", set_lan},
    {"ddns", set_ddns},
    {"iptv", set_iptv},
    {"easymesh_config", set_easymesh_config},
    {"wifiBasic", set_wifi_basic},
    {"wifiAdv", set_wifi_timer},
    {"pmSetSingle", set_pm_single},
    {"pmSetAll", set_pm_all},
    {"startInterConnd", set_start_interconnd},
    {"syncConfig", set_sync_config},
    {"syncOnoff", set_sync_onoff},
    {"configAP", set_config_ap},
    {"hostSettings", set_host_settings},
    {"rmBlackHost", set_rm_black_host},
    {"restore", set_restore},
    {"fwrestore", set_fwrestore},
    {"reboot", set_reboot},
    {"checkTAPasswd", check_admin_password},
    {"checkUAPasswd", check_user_password},
    {"setloid", set_loid},
    {"registerloid", set_register_loid},
    {"usbModifyLabel", set_usb_modify_label},
    {"setAppParas", set_app_paras},
    {"logInfo", log_login_event},
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
