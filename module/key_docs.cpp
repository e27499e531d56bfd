// Descriptions of the keys for the catalogue; the key tables stay the authority on
// which keys exist, in which order, and which are built.
#include "module/key_docs.h"

#include <string.h>

#include "module/dispatch.h"

namespace velconfig {
namespace {

const KeyDoc kDocs[] = {
    {"get", "hasWiFi", "", "1 when the gateway has Wi-Fi, else 0", false},
    {"get", "hasPots", "", "1 when the gateway has telephony ports, else 0", false},
    {"get", "hasUsb", "", "1 when the gateway has a USB port, else 0", false},
    {"get", "devType", "", "the device type number", false},
    {"get", "hasMesh", "", "1 without Wi-Fi, with a readable MAP agent, or with mesh on; else 0", false},
    {"get", "gwIPs", "", "LANIP, WANIP, LAN6IP, WAN6IP", false},
    {"get", "getAppConfig", "", "the pages' fixed settings", false},
    {"get", "allInfo", "",
     "pc%d, wifi%d device rows with speeds, wcount, wlcount, speed totals, itv, voip, storage%d, scount, "
     "wanConnect, wanUpTime",
     false},
    {"get", "gwStatus", "", "upTime, sysTime, cpuUsed, wcount, wlcount, itv, voip, storage%d, scount", false},
    {"get", "gwInfo", "a1: \"all\" adds the Wi-Fi names and the PPPoE account",
     "DevType, ProductCls, ProductSN, MAC, SWVer, Vendor, LANIP, LANIPv6, WANIP, WANIPv6, MarkType, "
     "DeviceModel, NASN",
     false},
    {"get", "lan", "", "dhcpEnbl, lanIp, poolStart, poolEnd, subnetMask", false},
    {"get", "ddns", "", "ddnsCfg%d rows, count", false},
    {"get", "iptv", "", "enable, vlanOnOff, vlanid, bindlanport", false},
    {"get", "easymesh_config", "",
     "enblMesh, enbl1, ssid1, key1, auth1, enbl2, ssid2, key2, auth2, the interconnect status (ap%d rows, "
     "appStatus, configEnbl, onoff, devcnt), rssi1, rssi2",
     false},
    {"get", "pmLists", "",
     "pmRule%d rows (desp, client, protocol, exPort, inPort, enable), count, lanIp, mask", false},
    {"get", "interConndStatus", "", "ap%d rows, appStatus, configEnbl, onoff, devcnt", false},
    {"get", "wifiBasic", "",
     "enbl1, ssid1, powerLevel1, wallPower1, auth1, passwd1, the same with 2 and standard2 for 5 GHz "
     "(dual band only), dualBand, wifi6",
     false},
    {"get", "wifiAdv", "", "timerEnbl, startTime, endTime, sysTime", false},
    {"get", "hostsInfo", "a1: filter, 0 wired, 1 wireless, other all",
     "dev%d rows (ip, ipv6, type, system, mac, upSpeed, downSpeed, restrict, black), curip, count", false},
    {"get", "itvVoipReg", "", "itv, voip: whether IPTV and voice were delivered", false},
    {"get", "blackHosts", "", "black-listed hosts as rows, count", false},
    {"get", "usbDevices", "", "storage%d rows (label, instno, maxSize, usedSize), usbCount", false},
    {"get", "fileLists", "a1: instance number of the disk to open",
     "storage%d, instno%d, usbLabel, usbLabelInst, file%d listing, filePath, fileNum, usbCnt", false},
    {"get", "selectedUsb", "a1: instance number", "file%d listing, filePath, fileNum", false},
    {"get", "subFiles", "a1: folder path", "file%d listing, filePath, fileNum", false},
    {"get", "newFolder", "a1: folder to create; a2: folder mode flag",
     "the parent's listing, filePath, fileNum (or folder%d, folderNum)", true},
    {"get", "deleteFiles", "a1: folder path; a2: names, each followed by \"/\"",
     "file%d listing, filePath, fileNum", true},
    {"get", "renameFile", "a1: old full path; a2: new full path", "file%d listing, filePath, fileNum", true},
    {"get", "getDiagFolders", "a1: folder path", "folder%d, folderNum", false},
    {"get", "copyMove", "a1: op|source|destination|largest file; a2: names, each followed by \"/\"",
     "filePath, fileNum, transId, percent, setRes (a move adds the source folder's file%d listing)", true},
    {"get", "copyProgress", "a1: transfer identifier", "percent (200 on failure)", false},
    {"get", "usbFormat", "a1: instance number",
     "filePath, fileNum (a file%d listing only when formatting failed)", true},
    {"get", "checkLoid", "", "the LOID registration status, unsigned", false},
    {"get", "regProcess", "",
     "the progress text checkLoidStatus({\"result\":status,\"msg\":\"services\"}); a refused registration "
     "(405, 407, 409) stores the LOID hold-off mark",
     true},
    {"get", "getMallUrl", "", "url (on success), result (0 success, 1 failure)", false},
    {"get", "getAppParas", "a1: the application's file name under /etc/config",
     "'SECTION' tables (the name as quoted in the file) of option -> value, quotes kept; ret (1 when an "
     "option was read, else 0)",
     false},
    {"get", "wifiSsid", "", "hasWiFi, ssid, bType, productCls, lanIp", false},

    {"set", "account", "table: old, new (the user password change)",
     "0 changed, 1 current password rejected, 2 change refused, 3 other failure", true},
    {"set", "lan", "table: dhcpEnbl, oldLanIp, lanIp, poolStart, poolEnd, subnetMask",
     "0 written, 2 written and moved, 1 no table", true},
    {"set", "ddns", "table: add/edit/del with the entry's fields", "0 done, other values failure", true},
    {"set", "iptv", "table: enable, vlanOnOff, vlanid, bindlanport", "the platform's code", true},
    {"set", "easymesh_config",
     "table: easymeshEnbl, then mesh_2G_enbl/ssid/auth/passwd/rssi and the same for 5G (read only when "
     "easymeshEnbl is 1)",
     "the mesh settings write's code (0 done), 1 a text that is not UTF-8", true},
    {"set", "wifiBasic", "table: wifi_dualBand, wifi_2G_enbl/ssid/auth/passwd/strength, the same for 5G",
     "0 done (or no main SSID), 1 a text that is not clean, other values the platform's code", true},
    {"set", "wifiAdv", "table: wifi_timing, start_time, end_time (read when wifi_timing is not 0)",
     "0 done (or off and staying off), 1 a text that is not clean, other values the platform's code", true},
    {"set", "pmSetSingle", "table: op (add, del, enable, disable), desp, client, protocol, exPort, inPort",
     "the platform's code", true},
    {"set", "pmSetAll", "table: op (del, enable, disable)", "the platform's code", true},
    {"set", "startInterConnd", "", "0 started, other values the platform's code", true},
    {"set", "syncConfig", "table: syncConfig", "1", true},
    {"set", "syncOnoff", "table: syncOnoff", "1", true},
    {"set", "configAP", "table: mac, modeflg, ssid2g, pwd2g, enbl2g, ssid5g, pwd5g, enbl5g",
     "0 done, 1 no reply or a text that is not clean, other values the plugin's status", true},
    {"set", "hostSettings", "table: type, mac, onOff",
     "0 done, 1 unknown host, other values the platform's code", true},
    {"set", "rmBlackHost", "table: mac", "0 done, 1 unknown host, other values the platform's code", true},
    {"set", "restore", "", "the recovery status", true},
    {"set", "fwrestore", "", "0", true},
    {"set", "reboot", "", "0", true},
    {"set", "checkTAPasswd", "text: the administrator password", "0 accepted, 1 rejected", false},
    {"set", "checkUAPasswd", "text: the user password", "0 accepted, 1 rejected", false},
    {"set", "setloid", "table: loid, loidPsd, hasWiFi, and when hasWiFi is not 0 wifiSsid, wifiPsd",
     "0 stored, the seconds still to wait after a refused registration, 1 a text that is not UTF-8, other "
     "values the platform's code",
     true},
    {"set", "registerloid", "", "the status the registration request reports (0 started)", true},
    {"set", "usbModifyLabel", "table: instno, newLabel", "the platform's code", true},
    {"set", "setAppParas", "text: JSON with \"config\" (the file name) and \"SECTION.OPTION\" texts",
     "0 the last option looked up was set (also: none qualified, a missing file, a name it will not use); "
     "-1 the JSON had no text for it; 1 not JSON or no \"config\"",
     true},
    {"set", "logInfo", "text: \"logout\", \"lock\" or \"unlock\"", "0", false},
};

}  // namespace

const KeyDoc* find_key_doc(const char* call, const char* key) {
  for (const KeyDoc& d : kDocs) {
    if (strcmp(d.call, call) == 0 && strcmp(d.key, key) == 0) return &d;
  }
  return nullptr;
}

void for_each_key(void (*visit)(const char* call, const char* key, bool built, void* context),
                  void* context) {
  auto [gets, get_count] = get_keys();
  for (size_t i = 0; i < get_count; ++i) visit("get", gets[i].key, gets[i].handler != nullptr, context);
  auto [sets, set_count] = set_keys();
  for (size_t i = 0; i < set_count; ++i) visit("set", sets[i].key, sets[i].handler != nullptr, context);
}

}  // namespace velconfig
