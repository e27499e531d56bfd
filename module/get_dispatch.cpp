// The read keys in comparison order; the first equal key wins. A null handler is a
// key whose feature is not built yet: get answers it with nil, as an unknown key.
#include <string.h>

#include "apps/apps.h"
#include "interconnect/interconnect.h"
#include "module/dispatch.h"
#include "module/small_queries.h"
#include "network/network.h"
#include "platform/text.h"
#include "status/status.h"
#include "storage/storage.h"
#include "wifi/mesh.h"
#include "wifi/wifi.h"

namespace velconfig {
namespace {

const GetKey kGetKeys[] = {
    {"hasWiFi", get_has_wifi},
    {"hasPots", get_has_pots},
    {"hasUsb", get_has_usb},
    {"devType", get_dev_type},
    {"hasMesh", get_has_mesh},
    {"gwIPs", get_gw_ips},
    {"getAppConfig", get_app_config},
    {"allInfo", get_all_info},
    {"gwStatus", get_gw_status},
    // An absent argument is not "all".
    {"gwInfo",
     [](lua_State* L, const GetArgs& a) { get_gw_info(L, a.a1 != nullptr && strcmp(a.a1, "all") == 0); }},
    {"lan", get_lan},
    {"ddns", get_ddns},
    {"iptv", get_iptv},
    {"easymesh_config", get_easymesh_config},
    {"pmLists", get_pm_lists},
    {"interConndStatus", get_interconnd_status},
    {"wifiBasic", get_wifi_basic},
    {"wifiAdv", get_wifi_timer},
    // An absent filter reads as 0, as decimal conversion of nothing gives.
    {"hostsInfo", [](lua_State* L, const GetArgs& a) { get_hosts_info(L, decimal_value(a.a1)); }},
    {"itvVoipReg", get_itv_voip_reg},
    {"blackHosts", get_black_hosts},
    {"usbDevices", get_usb_devices},
    {"fileLists", get_file_lists},
    {"selectedUsb", get_selected_usb},
    {"subFiles", get_sub_files},
    {"newFolder", get_new_folder},
    {"deleteFiles", get_delete_files},
    {"renameFile", get_rename_file},
    {"getDiagFolders", get_diag_folders},
    {"copyMove", get_copy_move},
    {"copyProgress", get_copy_progress},
    {"usbFormat", get_usb_format},
    {"checkLoid", get_check_loid},
    {"regProcess", get_reg_process},
    {"getMallUrl", get_mall_url},
    {"getAppParas", get_app_paras},
    {"wifiSsid", get_wifi_ssid},
};
static_assert(sizeof kGetKeys / sizeof kGetKeys[0] == 37, "get knows 37 keys");

}  // namespace

GetHandler find_get_handler(std::string_view key) {
  for (const GetKey& row : kGetKeys) {
    if (key == row.key) return row.handler;
  }
  return nullptr;
}

std::pair<const GetKey*, size_t> get_keys() { return {kGetKeys, sizeof kGetKeys / sizeof kGetKeys[0]}; }

}  // namespace velconfig
